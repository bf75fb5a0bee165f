#include "frame/Srfilecomponents.h"

#include "frame/Wbpersistence.h"

#include <algorithm>
#include <cstring>

#include "frame/Srsamples.h"

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

void TSRAudioFileSource::SetTrailingSilence(uint64_t Frames) {
  TLockGuard G(GetLock());
  FTrailingSilence = Frames;
}

uint64_t TSRAudioFileSource::GetTrailingSilence() const {
  TLockGuard G(GetLock());
  return FTrailingSilence;
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

  // Sends the first Frames frames of the interleaved block, one buffer per channel.
  const auto SendFrames = [&](size_t Frames) {
    for (unsigned C = 0; C < Channels; ++C) {
      const uint8_t* Src = Interleaved->GetData() + C * Bytes;
      uint8_t* Dst = Mono[C]->GetData();
      if (Info.Float) {
        for (size_t I = 0; I < Frames; ++I) {
          float Value;
          std::memcpy(&Value, Src + I * Channels * Bytes, 4);
          const int32_t Sample = RoundFullScale32(Value);
          std::memcpy(Dst + I * 4, &Sample, 4);
        }
      } else {
        for (size_t I = 0; I < Frames; ++I) std::memcpy(Dst + I * Bytes, Src + I * Channels * Bytes, Bytes);
      }
      Mono[C]->SetSampleCount(Frames);
      if (auto* Pin = GetOutputPin(C)) Pin->SubmitBuffer(Mono[C]);
    }
  };
  const uint64_t Total = Info.Frames + FTrailingSilence;
  uint64_t Sent = 0;
  bool Go = true;
  for (;;) {
    const int64_t Got = FReader->Read(Interleaved->GetData(), Block);
    if (Got < 0) {
      Error("Can't read file " + FFileName, -2);
      Go = false;
      break;
    }
    if (Got == 0) break;
    SendFrames(static_cast<size_t>(Got));
    Sent += static_cast<uint64_t>(Got);
    if (Progress && !Progress(Sent, Total)) {
      Go = false;
      break;
    }
  }
  if (Go && FTrailingSilence > 0) {
    if (Info.Float)
      std::memset(Interleaved->GetData(), 0, Block * Channels * Bytes);
    else
      SilencePcmFrames(Interleaved->GetData(), Channels, Bits, Block);
    for (uint64_t Left = FTrailingSilence; Left > 0 && Go;) {
      const size_t Frames = static_cast<size_t>(std::min<uint64_t>(Left, Block));
      SendFrames(Frames);
      Sent += Frames;
      Left -= Frames;
      if (Progress && !Progress(Sent, Total)) Go = false;
    }
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
  Info.Channels = Channels;
  Info.Bits = static_cast<uint16_t>(Bits);
  Info.Float = FFloat;
  if (FFloat) FFloats.resize(static_cast<size_t>(Channels) * Block);
  FSkipLeft = FSkipFrames;
  std::string Reason;
  FWriter = Platform::CreateAudioFile(FFileName, Info, Reason);
  if (!FWriter) Error("Can't create file " + FFileName + ": " + Reason, -1);
}

void TSRAudioFileSink::CalculateSendOutput() {
  const size_t Samples = GetCurrentBlockSize();
  if (!FWriter || !FWorkBuffer || !FFrames || !FWorkBuffer->SetSampleCount(Samples) ||
      !FFrames->SetSampleCount(Samples))
    return;
  // Frames still to be dropped at the stream's start are read and forgotten.
  const size_t Skip = static_cast<size_t>(std::min<uint64_t>(FSkipLeft, Samples));
  FSkipLeft -= Skip;
  const size_t Keep = Samples - Skip;
  const unsigned Channels = FFrames->GetChannels(), Bytes = FFrames->GetBytesPerSample();
  for (unsigned C = 0; C < Channels && C < GetInputPins().CountLocked(); ++C) {
    InputAt(C)->StretchLoadBuffer(*FWorkBuffer);
    if (Keep == 0) continue;
    const uint8_t* Src = FWorkBuffer->GetData() + Skip * Bytes;
    uint8_t* Dst = FFrames->GetData() + C * Bytes;
    int64_t Peak = FPeaks[C];
    for (size_t I = 0; I < Keep; ++I) {
      const int64_t V = FWorkBuffer->GetSample(Skip + I, 0);
      if (FFloat)
        FFloats[I * Channels + C] = static_cast<float>(static_cast<double>(V) / 2147483648.0);
      else
        std::memcpy(Dst + I * Channels * Bytes, Src + I * Bytes, Bytes);
      Peak = std::max<int64_t>(Peak, std::min<int64_t>(V < 0 ? -V : V, INT32_MAX));
    }
    FPeaks[C] = static_cast<int32_t>(Peak);
  }
  if (Keep == 0) return;
  const void* Data = FFloat ? static_cast<const void*>(FFloats.data()) : FFrames->GetData();
  if (!FWriter->Write(Data, Keep)) {
    FWriter.reset();
    Error("Can't write file " + FFileName, -2);
    return;
  }
  FWritten += Keep;
}

void TSRAudioFileSink::SetFloat(bool Value) {
  TLockGuard G(GetLock());
  FFloat = Value;
}

bool TSRAudioFileSink::GetFloat() const {
  TLockGuard G(GetLock());
  return FFloat;
}

void TSRAudioFileSink::SetSkipFrames(uint64_t Frames) {
  TLockGuard G(GetLock());
  FSkipFrames = Frames;
}

uint64_t TSRAudioFileSink::GetSkipFrames() const {
  TLockGuard G(GetLock());
  return FSkipFrames;
}

void TSRAudioFileSink::IntStop() {
  if (FWriter) FWriter->Close();
  FWriter.reset();
  TSRBasicMultiInput::IntStop();
}


// ---- published properties ---------------------------------------------------

const TWBClassInfo& TSRAudioFileSource::ClassInfo() {
  static const TWBClassInfo Info = MakeClassInfo(
      "TSRAudioFileSource", &TWBComponent::ClassInfo(),
      {Property("FileName", &TSRAudioFileSource::GetFileName, &TSRAudioFileSource::SetFileName, std::string()),
       Property("BlockSize", &TSRAudioFileSource::GetBlockSize, &TSRAudioFileSource::SetBlockSize, size_t(1024)),
       Property("TrailingSilence", &TSRAudioFileSource::GetTrailingSilence, &TSRAudioFileSource::SetTrailingSilence,
                uint64_t(0))},
      Factory<TSRAudioFileSource>());
  return Info;
}

const TWBClassInfo& TSRAudioFileSink::ClassInfo() {
  static const TWBClassInfo Info = MakeClassInfo(
      "TSRAudioFileSink", &TSRBasicMultiInput::ClassInfo(),
      {PropertyOf<TSRAudioFileSink, size_t>(
           "Channels", [](TSRAudioFileSink& S) { return S.GetInputPins().Count(); },
           [](TSRAudioFileSink& S, size_t N) { S.GetInputPins().SetCount(N); }, size_t(2)),
       Property("FileName", &TSRAudioFileSink::GetFileName, &TSRAudioFileSink::SetFileName, std::string()),
       Property("Float", &TSRAudioFileSink::GetFloat, &TSRAudioFileSink::SetFloat, false),
       Property("SkipFrames", &TSRAudioFileSink::GetSkipFrames, &TSRAudioFileSink::SetSkipFrames, uint64_t(0))},
      Factory<TSRAudioFileSink>());
  return Info;
}

void TSRAudioFileSource::Loaded() {
  // A source loaded with a file name opens it, so that its pins exist for
  // the connections that follow.
  if (!GetFileName().empty()) Open();
}

}  // namespace Quorvel
