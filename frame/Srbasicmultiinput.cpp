#include "frame/Srbasicmultiinput.h"

#include "frame/Wbpersistence.h"

#include <algorithm>
#include <cstring>

namespace Quorvel {

using Threading::TLockGuard;

// ---- TSRPWQueuedAudioSinkPin --------------------------------------------------

void TSRPWQueuedAudioSinkPin::Prepare(unsigned Channels, unsigned Bits, size_t Frames) {
  if (Channels == 0 || (Bits != 8 && Bits != 16 && Bits != 24 && Bits != 32)) return;
  if (FCount == 0 && (Channels != FChannels || Bits != FBits)) {
    FChannels = Channels;
    FBits = Bits;
    FHead = 0;
    // The ring always holds whole frames, so that wrapping is frame-exact.
    FRing.resize(FRing.size() / (static_cast<size_t>(Channels) * (Bits / 8)) * (static_cast<size_t>(Channels) * (Bits / 8)));
  }
  const size_t FrameBytes = static_cast<size_t>(FChannels) * (FBits / 8);
  const size_t Needed = (FCount + Frames) * FrameBytes;
  if (Needed <= FRing.size()) return;
  // Grow, keeping the held frames in order at the start of the new ring.
  std::vector<uint8_t> Ring(std::max(Needed, FRing.size() * 2 / FrameBytes * FrameBytes));
  const size_t Held = FCount * FrameBytes;
  const size_t First = std::min(Held, FRing.size() - FHead);
  if (First) std::memcpy(Ring.data(), FRing.data() + FHead, First);
  if (Held > First) std::memcpy(Ring.data() + First, FRing.data(), Held - First);
  FRing.swap(Ring);
  FHead = 0;
}

void TSRPWQueuedAudioSinkPin::Push(const ISRAudioBuffer& Buffer) {
  const size_t Frames = Buffer.GetSamples();
  if (Frames == 0 || Buffer.GetChannels() == 0) return;
  Prepare(Buffer.GetChannels(), Buffer.GetBits(), Frames);
  const size_t FrameBytes = static_cast<size_t>(FChannels) * (FBits / 8);
  const size_t RingFrames = FRing.size() / FrameBytes;
  size_t Tail = (FHead / FrameBytes + FCount) % RingFrames;
  const uint8_t* Src = Buffer.GetData();
  size_t Left = Frames;
  while (Left) {
    const size_t Run = std::min(Left, RingFrames - Tail);
    ConvertPcmFrames(Src, Buffer.GetChannels(), Buffer.GetBits(), FRing.data() + Tail * FrameBytes, FChannels, FBits,
                     Run);
    Src += Run * Buffer.GetFrameBytes();
    Left -= Run;
    Tail = (Tail + Run) % RingFrames;
  }
  FCount += Frames;
}

size_t TSRPWQueuedAudioSinkPin::StretchLoadBuffer(ISRAudioBuffer& Buffer) {
  const size_t Wanted = Buffer.GetSamples();
  const size_t Take = std::min(Wanted, FCount);
  uint8_t* Dst = Buffer.GetData();
  if (Take) {
    const size_t FrameBytes = static_cast<size_t>(FChannels) * (FBits / 8);
    const size_t RingFrames = FRing.size() / FrameBytes;
    size_t Head = FHead / FrameBytes;
    size_t Left = Take;
    while (Left) {
      const size_t Run = std::min(Left, RingFrames - Head);
      ConvertPcmFrames(FRing.data() + Head * FrameBytes, FChannels, FBits, Dst, Buffer.GetChannels(),
                       Buffer.GetBits(), Run);
      Dst += Run * Buffer.GetFrameBytes();
      Left -= Run;
      Head = (Head + Run) % RingFrames;
    }
    FHead = Head * FrameBytes;
    FCount -= Take;
  }
  SilencePcmFrames(Dst, Buffer.GetChannels(), Buffer.GetBits(), Wanted - Take);
  return Take;
}

size_t TSRPWQueuedAudioSinkPin::Skip(size_t Frames) {
  const size_t Take = std::min(Frames, FCount);
  if (Take) {
    const size_t FrameBytes = static_cast<size_t>(FChannels) * (FBits / 8);
    const size_t RingFrames = FRing.size() / FrameBytes;
    FHead = ((FHead / FrameBytes + Take) % RingFrames) * FrameBytes;
    FCount -= Take;
  }
  return Take;
}

void TSRPWQueuedAudioSinkPin::Clear() {
  FHead = 0;
  FCount = 0;
}

// ---- TSRBasicMultiInput ---------------------------------------------------

TSRBasicMultiInput::TSRBasicMultiInput(TWBComponent* Owner, size_t InputCount, size_t OutputCount)
    : TWBComponent(Owner),
      FFormat(this, &GetLock(), nullptr),
      FInputPins(*this, GetLock(), {TPWPinCategory::pcAudio}, true),
      FOutputPins(*this, GetLock(), {TPWPinCategory::pcAudio}, true) {
  FInputPins.OnCreatePin = [this](TPWPinList&, size_t I) {
    TPWBasicPin* Pin = CreateInputPin(I);
    if (auto* Queued = dynamic_cast<TSRPWQueuedAudioSinkPin*>(Pin)) {
      Queued->InputOf = this;
      Queued->InputIndex = I;
    }
    return Pin;
  };
  FOutputPins.OnCreatePin = [this](TPWPinList&, size_t I) { return CreateOutputPin(I); };
  // Virtual calls from a constructor reach this class's own creators here;
  // derived classes that create other pins call SetCount again.
  FInputPins.SetCount(InputCount);
  FOutputPins.SetCount(OutputCount);
}

TSRBasicMultiInput::~TSRBasicMultiInput() {
  BeginDestroy();
  FInputPins.OnCreatePin = nullptr;
  FOutputPins.OnCreatePin = nullptr;
}

TPWBasicPin* TSRBasicMultiInput::CreateInputPin(size_t Index) {
  return new TSRPWQueuedAudioSinkPin(*this, "Input" + std::to_string(Index + 1));
}

TPWBasicPin* TSRBasicMultiInput::CreateOutputPin(size_t Index) {
  return new TSRPWAudioSourcePin(*this, "Output" + std::to_string(Index + 1));
}

TSRPWQueuedAudioSinkPin* TSRBasicMultiInput::GetInputPin(size_t Index) {
  return static_cast<TSRPWQueuedAudioSinkPin*>(FInputPins.Get(Index));
}

TSRPWAudioSourcePin* TSRBasicMultiInput::GetOutputPin(size_t Index) {
  return static_cast<TSRPWAudioSourcePin*>(FOutputPins.Get(Index));
}

TSRPWQueuedAudioSinkPin* TSRBasicMultiInput::InputAt(size_t Index) const {
  return static_cast<TSRPWQueuedAudioSinkPin*>(FInputPins.GetLocked(Index));
}

TSRPWAudioSourcePin* TSRBasicMultiInput::OutputAt(size_t Index) const {
  return static_cast<TSRPWAudioSourcePin*>(FOutputPins.GetLocked(Index));
}

void TSRBasicMultiInput::SetBufferSize(size_t Value) {
  TLockGuard G(GetLock());
  FBufferSize = std::max<size_t>(Value, 1);
}

size_t TSRBasicMultiInput::GetBufferSize() const {
  TLockGuard G(GetLock());
  return FBufferSize;
}

TSRWaveFormatExtensible TSRBasicMultiInput::GetOutputFormat(size_t Index) {
  if (FWorkBuffer && FWorkBuffer->GetChannels()) return FWorkBuffer->GetWaveFormat();
  return FFormat.GetWaveFormat();
}

void TSRBasicMultiInput::StreamStarted() {
  FWorkBuffer = TSRAudioBuffer::Create(FFormat.GetCountChannels(), GetOutputBufferSize(), FFormat.GetBits(),
                                       FFormat.GetSampleRate());
}

void TSRBasicMultiInput::CalculateSendOutput() {
  if (!FWorkBuffer || !FWorkBuffer->SetSampleCount(FCurrentBlockSize)) return;
  const size_t N = std::min(FInputPins.CountLocked(), FOutputPins.CountLocked());
  for (size_t I = 0; I < N; ++I) {
    InputAt(I)->StretchLoadBuffer(*FWorkBuffer);
    OutputAt(I)->SubmitBuffer(FWorkBuffer);
  }
}

void TSRBasicMultiInput::IntStop() { FWorkBuffer.Reset(); }

bool TSRBasicMultiInput::HasBlock(size_t Samples) {
  const size_t N = FInputPins.CountLocked();
  if (Samples != FScanBlock || FScanFrom > N) RestartScan(Samples);
  for (; FScanFrom < N; ++FScanFrom) {
    auto* Pin = InputAt(FScanFrom);
    if (!Pin->Started) continue;
    if (Pin->GetQueuedSamples() >= Samples)
      FScanAny = true;
    else if (!Pin->Stopped)
      return false;  // an active input still owes samples
  }
  return FScanAny;
}

void TSRBasicMultiInput::RestartScan(size_t Samples) {
  FScanFrom = 0;
  FScanBlock = Samples;
  FScanAny = false;
}

bool TSRBasicMultiInput::GetShouldStop() {
  bool AnyStarted = false;
  for (size_t I = 0, N = FInputPins.CountLocked(); I < N; ++I) {
    auto* Pin = InputAt(I);
    if (!Pin->Started) continue;
    AnyStarted = true;
    if (!Pin->Stopped) return false;
  }
  return AnyStarted;
}

void TSRBasicMultiInput::ProduceBlock(size_t Samples) {
  RestartScan(FScanBlock);
  const size_t N = FInputPins.CountLocked();
  FQueuedBefore.resize(N);
  for (size_t I = 0; I < N; ++I) FQueuedBefore[I] = InputAt(I)->GetQueuedSamples();
  FCurrentBlockSize = Samples;
  CalculateSendOutput();
  // Every input advances by one block, also those the block did not read,
  // so that no queue grows without bound and inputs stay aligned.
  for (size_t I = 0; I < N && I < FInputPins.CountLocked(); ++I) {
    auto* Pin = InputAt(I);
    const size_t Consumed = FQueuedBefore[I] - std::min(FQueuedBefore[I], Pin->GetQueuedSamples());
    if (Consumed < Samples) Pin->Skip(Samples - Consumed);
  }
}

void TSRBasicMultiInput::TrySend() {
  if (FSending) return;  // a block's own output came back to an input
  FSending = true;
  try {
    const size_t B = std::max<size_t>(GetOutputBufferSize(), 1);
    while (FStreaming.load() && HasBlock(B)) ProduceBlock(B);
  } catch (...) {
    FSending = false;
    throw;
  }
  FSending = false;
}

void TSRBasicMultiInput::MainTrySend() {
  TLockGuard G(GetLock());
  TrySend();
}

void TSRBasicMultiInput::FinishStream() {
  TrySend();
  // The final, shorter block: whatever is left on the fullest input.
  size_t Left = 0;
  for (size_t I = 0, N = FInputPins.CountLocked(); I < N; ++I)
    Left = std::max(Left, InputAt(I)->GetQueuedSamples());
  const size_t B = std::max<size_t>(GetOutputBufferSize(), 1);
  if (Left > 0 && Left < B) ProduceBlock(Left);
  FStreaming = false;
  RestartScan(FScanBlock);
  IntStop();
  for (size_t I = 0, N = FInputPins.CountLocked(); I < N; ++I) {
    auto* Pin = InputAt(I);
    Pin->Started = Pin->Stopped = false;
    Pin->Clear();
  }
  if (FStopOnNoStreams)
    for (size_t I = 0, N = FOutputPins.CountLocked(); I < N; ++I) OutputAt(I)->SendStop();
}

void TSRBasicMultiInput::SinkDispatch(TPWBasicPin* SourcePin, TPWBasicPin* SinkPin, TPWOperationID ID,
                                      TPWOperation& Operation, TPWNotifyStates& States) {
  auto* Pin = &SinkPin->GetOwner() == static_cast<IPWPinOwner*>(this)
                  ? dynamic_cast<TSRPWQueuedAudioSinkPin*>(SinkPin)
                  : nullptr;
  if (!Pin || Pin->InputOf != this || FInputPins.GetLocked(Pin->InputIndex) != Pin) return;
  switch (ID) {
    case poidStartWave: {
      auto& Op = static_cast<TPWStartWaveOperation&>(Operation);
      const auto& F = Op.GetFormat().Format;
      if (!FStreaming.load()) {
        if (!FFormat.SetWaveFormat(Op.GetFormat(), Op.GetSampleRate())) {
          States.Include(TPWNotifyState::pnsRefused);
          Warning("Unsupported stream format", -1);
          return;
        }
      } else if (F.wBitsPerSample % 8 != 0 || F.wBitsPerSample < 8 || F.wBitsPerSample > 32 || F.nChannels == 0) {
        States.Include(TPWNotifyState::pnsRefused);
        return;
      }
      Pin->Clear();
      Pin->Prepare(F.nChannels, F.wBitsPerSample, 4 * std::max<size_t>(GetOutputBufferSize(), 1));
      Pin->Started = true;
      Pin->Stopped = false;
      // An input that joins owes samples again: look at it on the next scan.
      if (Pin->InputIndex < FScanFrom) RestartScan(FScanBlock);
      if (!FStreaming.load()) {
        FStreaming = true;
        // Room for the per-block bookkeeping now, so that no block allocates.
        FQueuedBefore.reserve(FInputPins.CountLocked());
        StreamStarted();
        for (size_t I = 0, N = FOutputPins.CountLocked(); I < N; ++I)
          OutputAt(I)->SendStartWave(GetOutputFormat(I), Op.GetRealTime());
      }
      break;
    }
    case poidSuppliedBuffer: {
      ISRAudioBuffer* Buffer = static_cast<TPWSuppliedBufferOperation&>(Operation).GetAudioBuffer();
      if (!Buffer || !Pin->Started || Pin->Stopped) {
        States.Include(TPWNotifyState::pnsRefused);
        return;
      }
      Pin->Push(*Buffer);
      TrySend();
      break;
    }
    case poidStop:
      if (!Pin->Started || Pin->Stopped) break;
      Pin->Stopped = true;
      TrySend();
      if (FStreaming.load() && GetShouldStop()) FinishStream();
      break;
    default:
      for (size_t I = 0, N = FOutputPins.CountLocked(); I < N; ++I) OutputAt(I)->Notify(Operation, States);
      break;
  }
  States.Include(TPWNotifyState::pnsHandled);
}

void TSRBasicMultiInput::SourceDispatch(TPWBasicPin* SourcePin, TPWBasicPin* SinkPin, TPWOperationID ID,
                                        TPWOperation& Operation, TPWNotifyStates& States) {
  switch (ID) {
    case poidPumpRequest:
    case poidMasterPump: MasterPumpRequest(); break;
    default: PassTroughMasterPump(Operation); break;
  }
}

void TSRBasicMultiInput::MasterPumpRequest() {
  // Decide under the lock which inputs lack a block, then pump them without it.
  size_t Count = 0;
  {
    TLockGuard G(GetLock());
    const size_t B = std::max<size_t>(GetOutputBufferSize(), 1);
    FPumpPins.resize(std::max(FPumpPins.size(), FInputPins.Count()));
    for (size_t I = 0, N = FInputPins.Count(); I < N; ++I) {
      auto* Pin = GetInputPin(I);
      if (Pin->GetSourceCount() > 0 && Pin->GetQueuedSamples() < B) FPumpPins[Count++] = Pin;
    }
  }
  for (size_t I = 0; I < Count; ++I) FPumpPins[I]->PumpRequest();
}

void TSRBasicMultiInput::PassTroughMasterPump(TPWOperation& Operation) {
  for (size_t I = 0, N = FInputPins.CountLocked(); I < N; ++I) InputAt(I)->NotifyUpstream(Operation);
}


const TWBClassInfo& TSRBasicMultiInput::ClassInfo() {
  static const TWBClassInfo Info = MakeClassInfo(
      "TSRBasicMultiInput", &TWBComponent::ClassInfo(),
      {Property("BufferSize", &TSRBasicMultiInput::GetBufferSize, &TSRBasicMultiInput::SetBufferSize, size_t(256))});
  return Info;
}

}  // namespace Quorvel
