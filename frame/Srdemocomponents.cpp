#include "frame/Srdemocomponents.h"

#include "frame/Wbpersistence.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>

#include "frame/Srsamples.h"
#include "platform/Audiofile.h"

namespace Quorvel {

using Threading::TLockGuard;

namespace {
constexpr double TwoPi = 6.283185307179586476925286766559;
}

// ---- TSRToneGenerator ------------------------------------------------------

TSRToneGenerator::TSRToneGenerator(TWBComponent* Owner) : TWBComponent(Owner), FOutputPin(*this, "Output") {}

TSRToneGenerator::~TSRToneGenerator() { BeginDestroy(); }

#define QUORVEL_PROPERTY(Type, Name, Field)                        \
  void TSRToneGenerator::Set##Name(Type Value) {                   \
    TLockGuard G(GetLock());                                       \
    Field = Value;                                                 \
  }                                                                \
  Type TSRToneGenerator::Get##Name() const {                       \
    TLockGuard G(GetLock());                                       \
    return Field;                                                  \
  }
QUORVEL_PROPERTY(double, Frequency, FFrequency)
QUORVEL_PROPERTY(double, Amplitude, FAmplitude)
QUORVEL_PROPERTY(double, SampleRate, FSampleRate)
QUORVEL_PROPERTY(unsigned, Channels, FChannels)
QUORVEL_PROPERTY(unsigned, Bits, FBits)
QUORVEL_PROPERTY(size_t, BlockSize, FBlockSize)
#undef QUORVEL_PROPERTY

uint64_t TSRToneGenerator::GetFramesSent() const {
  TLockGuard G(GetLock());
  return FFramesSent;
}

void TSRToneGenerator::Start() {
  TLockGuard G(GetLock());
  const bool BitsOk = FBits == 8 || FBits == 16 || FBits == 24 || FBits == 32;
  if (!BitsOk || FChannels == 0 || FChannels > 64 || !(FSampleRate >= 1.0) || FBlockSize == 0) {
    Error("Invalid tone format", -1);
    return;
  }
  FPhase = 0.0;
  FFramesSent = 0;
  FRunning = true;
  FOutputPin.SendStartWave(MakeWaveFormat(static_cast<uint32_t>(std::lround(FSampleRate)),
                                          static_cast<uint16_t>(FChannels), static_cast<uint16_t>(FBits)));
}

void TSRToneGenerator::SendBlock() {
  auto Buffer = TSRAudioBuffer::Create(FChannels, FBlockSize, FBits, FSampleRate);
  const double Scale = std::clamp(FAmplitude, 0.0, 1.0) * ISRAudioBuffer::MaxValue(FBits);
  const double Step = TwoPi * FFrequency / FSampleRate;
  for (size_t I = 0; I < FBlockSize; ++I) {
    const auto V = static_cast<int32_t>(std::lround(std::sin(FPhase) * Scale));
    for (unsigned C = 0; C < FChannels; ++C) Buffer->SetSample(I, C, V);
    FPhase += Step;
    if (FPhase >= TwoPi) FPhase -= TwoPi;
  }
  FFramesSent += FBlockSize;
  FOutputPin.SubmitBuffer(Buffer);
}

size_t TSRToneGenerator::Generate(size_t Count) {
  TLockGuard G(GetLock());
  if (!FRunning) return 0;
  for (size_t I = 0; I < Count; ++I) SendBlock();
  return Count * FBlockSize;
}

void TSRToneGenerator::Stop() {
  TLockGuard G(GetLock());
  if (!FRunning) return;
  FRunning = false;
  FOutputPin.SendStop();
}

void TSRToneGenerator::SourceDispatch(TPWBasicPin* SourcePin, TPWBasicPin* SinkPin, TPWOperationID ID,
                                      TPWOperation& Operation, TPWNotifyStates& States) {
  if (ID != poidPumpRequest && ID != poidMasterPump) return;
  TLockGuard G(GetLock());
  if (FRunning) {
    SendBlock();
    States.Include(TPWNotifyState::pnsHandled);
  }
}

// ---- TSRGainFilter ---------------------------------------------------------

void TSRGainFilter::SetGain(double Value) { FGain = Value; }
double TSRGainFilter::GetGain() const { return FGain.load(); }

void TSRGainFilter::InternalOperation(ISRAudioBuffer& InBuffer, ISRAudioBufferRef& OutBuffer, bool Pumped,
                                      bool& SendOutput) {
  if (!GetEnabled()) return;  // pass-through
  const double Gain = FGain.load();
  auto Out = TSRAudioBuffer::Create(InBuffer.GetChannels(), InBuffer.GetSamples(), InBuffer.GetBits(),
                                    InBuffer.GetSampleRate(), InBuffer.GetSpeakers());
  const double Lo = ISRAudioBuffer::MinValue(InBuffer.GetBits()), Hi = ISRAudioBuffer::MaxValue(InBuffer.GetBits());
  for (size_t I = 0; I < InBuffer.GetSamples(); ++I)
    for (unsigned C = 0; C < InBuffer.GetChannels(); ++C)
      Out->SetSample(I, C, RoundSample(InBuffer.GetSample(I, C) * Gain, Lo, Hi));
  OutBuffer = std::move(Out);
}

// ---- TSRWaveFileWriter -----------------------------------------------------

TSRWaveFileWriter::TSRWaveFileWriter(TWBComponent* Owner) : TWBComponent(Owner), FInputPin(*this, "Input") {}

TSRWaveFileWriter::~TSRWaveFileWriter() {
  BeginDestroy();
  TLockGuard G(GetLock());
  CloseFile();
}

void TSRWaveFileWriter::SetFileName(const std::string& Value) {
  TLockGuard G(GetLock());
  FFileName = Value;
}

std::string TSRWaveFileWriter::GetFileName() const {
  TLockGuard G(GetLock());
  return FFileName;
}

uint64_t TSRWaveFileWriter::GetFramesWritten() const { return FFrames.load(); }
uint64_t TSRWaveFileWriter::GetBuffersWritten() const { return FBuffers.load(); }
int32_t TSRWaveFileWriter::GetPeak() const { return FPeak.load(); }

bool TSRWaveFileWriter::IsWriting() const {
  TLockGuard G(GetLock());
  return FWriter != nullptr;
}

void TSRWaveFileWriter::CloseFile() {
  if (FWriter) FWriter->Close();
  FWriter.reset();
}

void TSRWaveFileWriter::SinkDispatch(TPWBasicPin* SourcePin, TPWBasicPin* SinkPin, TPWOperationID ID,
                                     TPWOperation& Operation, TPWNotifyStates& States) {
  switch (ID) {
    case poidStartWave: {
      CloseFile();
      const auto& F = static_cast<TPWStartWaveOperation&>(Operation).GetFormat().Format;
      Platform::TAudioFileInfo Info;
      Info.SampleRate = F.nSamplesPerSec;
      Info.Channels = F.nChannels;
      Info.Bits = F.wBitsPerSample;
      FChannels = F.nChannels;
      FBits = F.wBitsPerSample;
      FFrames = 0;
      FBuffers = 0;
      FPeak = 0;
      std::string Reason;
      FWriter = Platform::CreateAudioFile(FFileName, Info, Reason);
      if (!FWriter) Error("Can't create file " + FFileName + ": " + Reason, -1);
      break;
    }
    case poidSuppliedBuffer: {
      const ISRAudioBuffer* B = static_cast<TPWSuppliedBufferOperation&>(Operation).GetAudioBuffer();
      if (!FWriter || !B) return;
      if (B->GetChannels() != FChannels || B->GetBits() != FBits) {
        Warning("Buffer does not match the stream format", -3);
        return;
      }
      int32_t Peak = FPeak.load();
      for (size_t I = 0; I < B->GetSamples(); ++I)
        for (unsigned C = 0; C < B->GetChannels(); ++C)
          Peak = std::max(Peak, static_cast<int32_t>(std::min<int64_t>(std::llabs(B->GetSample(I, C)), INT32_MAX)));
      FPeak = Peak;
      if (!FWriter->Write(B->GetData(), B->GetSamples())) {
        CloseFile();
        Error("Can't write file", -2);
        return;
      }
      FFrames += B->GetSamples();
      ++FBuffers;
      break;
    }
    case poidStop: CloseFile(); break;
    default: break;
  }
  States.Include(TPWNotifyState::pnsHandled);
}


// ---- published properties ---------------------------------------------------

const TWBClassInfo& TSRToneGenerator::ClassInfo() {
  static const TWBClassInfo Info = MakeClassInfo(
      "TSRToneGenerator", &TWBComponent::ClassInfo(),
      {Property("Frequency", &TSRToneGenerator::GetFrequency, &TSRToneGenerator::SetFrequency, 440.0),
       Property("Amplitude", &TSRToneGenerator::GetAmplitude, &TSRToneGenerator::SetAmplitude, 0.5),
       Property("SampleRate", &TSRToneGenerator::GetSampleRate, &TSRToneGenerator::SetSampleRate, 44100.0),
       Property("Channels", &TSRToneGenerator::GetChannels, &TSRToneGenerator::SetChannels, 2u),
       Property("Bits", &TSRToneGenerator::GetBits, &TSRToneGenerator::SetBits, 16u),
       Property("BlockSize", &TSRToneGenerator::GetBlockSize, &TSRToneGenerator::SetBlockSize, size_t(256))},
      Factory<TSRToneGenerator>());
  return Info;
}

const TWBClassInfo& TSRGainFilter::ClassInfo() {
  static const TWBClassInfo Info =
      MakeClassInfo("TSRGainFilter", &TSRCommonFilter::ClassInfo(),
                    {Property("Gain", &TSRGainFilter::GetGain, &TSRGainFilter::SetGain, 1.0)}, Factory<TSRGainFilter>());
  return Info;
}

const TWBClassInfo& TSRWaveFileWriter::ClassInfo() {
  static const TWBClassInfo Info = MakeClassInfo(
      "TSRWaveFileWriter", &TWBComponent::ClassInfo(),
      {Property("FileName", &TSRWaveFileWriter::GetFileName, &TSRWaveFileWriter::SetFileName, std::string())},
      Factory<TSRWaveFileWriter>());
  return Info;
}

}  // namespace Quorvel
