#include "frame/Srfilecomponents.h"

#include <algorithm>
#include <cstring>

namespace Quorvel {

using Threading::TLockGuard;

// ---- TSRAudioFileSource ----------------------------------------------------------

TSRAudioFileSource::TSRAudioFileSource(TWBComponent* Owner)
    : TWBComponent(Owner), FOutputPins(*this, GetLock(), {TPWPinCategory::pcAudio}, true) {
  FOutputPins.OnCreatePin = [this](TPWPinList&, size_t I) -> TPWBasicPin* {
    return new TSRPWAudioSourcePin(*this, "Channel " + std::to_string(I + 1));
  };
}

TSRAudioFileSource::~TSRAudioFileSource() {
  BeginDestroy();
  FOutputPins.OnCreatePin = nullptr;
}

void TSRAudioFileSource::SetFileName(const std::string& Value) {
  TLockGuard G(GetLock());
  FReader.reset();
  FFileName = Value;
}

std::string TSRAudioFileSource::GetFileName() const {
  TLockGuard G(GetLock());
  return FFileName;
}

void TSRAudioFileSource::SetBlockSize(size_t Value) {
  TLockGuard G(GetLock());
  FBlockSize = std::max<size_t>(Value, 1);
}

size_t TSRAudioFileSource::GetBlockSize() const {
  TLockGuard G(GetLock());
  return FBlockSize;
}

TSRPWAudioSourcePin* TSRAudioFileSource::GetOutputPin(size_t Index) {
  return static_cast<TSRPWAudioSourcePin*>(FOutputPins.Get(Index));
}

bool TSRAudioFileSource::Open() {
  TLockGuard G(GetLock());
  std::string Reason;
  FReader = Platform::OpenAudioFileForReading(FFileName, Reason);
  if (!FReader) {
    Error("Can't open file " + FFileName + ": " + Reason, -1);
    return false;
  }
  FOutputPins.SetCount(FReader->Info().Channels);
  return true;
}

void TSRAudioFileSource::Close() {
  TLockGuard G(GetLock());
  FReader.reset();
}

bool TSRAudioFileSource::IsOpen() const {
  TLockGuard G(GetLock());
  return FReader != nullptr;
}

Platform::TAudioFileInfo TSRAudioFileSource::GetInfo() const {
  TLockGuard G(GetLock());
  return FReader ? FReader->Info() : Platform::TAudioFileInfo{};
}

uint64_t TSRAudioFileSource::Run(const std::function<bool(uint64_t, uint64_t)>& Progress) {
  // Reopen so that every run streams the file from its start.
  if (!Open()) return 0;
  TLockGuard G(GetLock());
  const Platform::TAudioFileInfo Info = FReader->Info();
  const unsigned Channels = Info.Channels, Bits = Info.Bits, Bytes = Bits / 8u;
  const size_t Block = FBlockSize;
  auto Interleaved = TSRAudioBuffer::Create(Channels, Block, Bits, Info.SampleRate);
  std::vector<ISRAudioBufferRef> Mono(Channels);
  for (auto& M : Mono) M = TSRAudioBuffer::Create(1, Block, Bits, Info.SampleRate);
  for (unsigned C = 0; C < Channels; ++C)
    if (auto* Pin = GetOutputPin(C)) Pin->SendStartWave(MakeWaveFormat(Info.SampleRate, 1, static_cast<uint16_t>(Bits)));

  uint64_t Sent = 0;
  for (;;) {
    const int64_t Got = FReader->Read(Interleaved->GetData(), Block);
    if (Got < 0) {
      Error("Can't read file " + FFileName, -2);
      break;
    }
    if (Got == 0) break;
    for (unsigned C = 0; C < Channels; ++C) {
      const uint8_t* Src = Interleaved->GetData() + C * Bytes;
      uint8_t* Dst = Mono[C]->GetData();
      for (int64_t I = 0; I < Got; ++I) std::memcpy(Dst + I * Bytes, Src + I * Channels * Bytes, Bytes);
      Mono[C]->SetSampleCount(static_cast<size_t>(Got));
      if (auto* Pin = GetOutputPin(C)) Pin->SubmitBuffer(Mono[C]);
    }
    Sent += static_cast<uint64_t>(Got);
    if (Progress && !Progress(Sent, Info.Frames)) break;
  }
  for (unsigned C = 0; C < Channels; ++C)
    if (auto* Pin = GetOutputPin(C)) Pin->SendStop();
  return Sent;
}

// ---- TSRAudioFileSink --------------------------------------------------------------

TSRAudioFileSink::TSRAudioFileSink(TWBComponent* Owner, size_t Channels) : TSRBasicMultiInput(Owner, Channels, 0) {}

TSRAudioFileSink::~TSRAudioFileSink() {
  BeginDestroy();
  FWriter.reset();
}

void TSRAudioFileSink::SetFileName(const std::string& Value) {
  TLockGuard G(GetLock());
  FFileName = Value;
}

std::string TSRAudioFileSink::GetFileName() const {
  TLockGuard G(GetLock());
  return FFileName;
}

uint64_t TSRAudioFileSink::GetFramesWritten() const { return FWritten.load(); }

std::vector<int32_t> TSRAudioFileSink::GetPeaks() const {
  TLockGuard G(GetLock());
  return FPeaks;
}

void TSRAudioFileSink::StreamStarted() {
  const unsigned Channels = static_cast<unsigned>(GetInputPins().CountLocked());
  const unsigned Bits = FFormat.GetBits();
  const double Rate = FFormat.GetSampleRate();
  const size_t Block = std::max<size_t>(GetOutputBufferSize(), 1);
  FWorkBuffer = TSRAudioBuffer::Create(1, Block, Bits, Rate);
  FFrames = TSRAudioBuffer::Create(Channels, Block, Bits, Rate);
  FPeaks.assign(Channels, 0);
  FWritten = 0;
  Platform::TAudioFileInfo Info;
  Info.SampleRate = static_cast<uint32_t>(Rate + 0.5);
  Info.Channels = static_cast<uint16_t>(Channels);
  Info.Bits = static_cast<uint16_t>(Bits);
  std::string Reason;
  FWriter = Platform::CreateAudioFile(FFileName, Info, Reason);
  if (!FWriter) Error("Can't create file " + FFileName + ": " + Reason, -1);
}

void TSRAudioFileSink::CalculateSendOutput() {
  const size_t Samples = GetCurrentBlockSize();
  if (!FWriter || !FWorkBuffer || !FFrames || !FWorkBuffer->SetSampleCount(Samples) ||
      !FFrames->SetSampleCount(Samples))
    return;
  const unsigned Channels = FFrames->GetChannels(), Bytes = FFrames->GetBytesPerSample();
  for (unsigned C = 0; C < Channels && C < GetInputPins().CountLocked(); ++C) {
    InputAt(C)->StretchLoadBuffer(*FWorkBuffer);
    const uint8_t* Src = FWorkBuffer->GetData();
    uint8_t* Dst = FFrames->GetData() + C * Bytes;
    for (size_t I = 0; I < Samples; ++I) {
      std::memcpy(Dst + I * Channels * Bytes, Src + I * Bytes, Bytes);
      const int64_t V = FWorkBuffer->GetSample(I, 0);
      FPeaks[C] = static_cast<int32_t>(std::max<int64_t>(FPeaks[C], std::min<int64_t>(V < 0 ? -V : V, INT32_MAX)));
    }
  }
  if (!FWriter->Write(FFrames->GetData(), Samples)) {
    FWriter.reset();
    Error("Can't write file " + FFileName, -2);
    return;
  }
  FWritten += Samples;
}

void TSRAudioFileSink::IntStop() {
  if (FWriter) FWriter->Close();
  FWriter.reset();
  TSRBasicMultiInput::IntStop();
}

}  // namespace Quorvel
