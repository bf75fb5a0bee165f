#include "frame/Srchannelcomponents.h"

#include <algorithm>
#include <cstring>

#include "frame/Wbpersistence.h"

namespace Quorvel {

using Threading::TLockGuard;

namespace {

// Copies channel From of Source into channel To of Dest, frame by frame; both
// have Dest's sample count and the same width.
void CopyChannel(const ISRAudioBuffer& Source, unsigned From, ISRAudioBuffer& Dest, unsigned To) {
  const size_t Bytes = Dest.GetBytesPerSample(), SStride = Source.GetFrameBytes(), DStride = Dest.GetFrameBytes();
  const uint8_t* S = Source.GetData() + From * Bytes;
  uint8_t* D = Dest.GetData() + To * Bytes;
  for (size_t I = 0, N = Dest.GetSamples(); I < N; ++I, S += SStride, D += DStride) std::memcpy(D, S, Bytes);
}

}  // namespace

// ---- joiner ------------------------------------------------------------------------

TSRChannelJoiner::TSRChannelJoiner(TWBComponent* Owner, size_t Channels) : TSRBasicMultiInput(Owner, 0, 1) {
  GetOutputPins().Get(0)->SetName("Output");
  SetChannels(Channels);
}

TSRChannelJoiner::~TSRChannelJoiner() { BeginDestroy(); }

void TSRChannelJoiner::SetChannels(size_t Value) {
  TLockGuard G(GetLock());
  if (IsStreaming()) return;
  GetInputPins().SetCount(std::max<size_t>(Value, 1));
}

TPWBasicPin* TSRChannelJoiner::CreateInputPin(size_t Index) {
  return new TSRPWQueuedAudioSinkPin(*this, "Channel " + std::to_string(Index + 1));
}

void TSRChannelJoiner::StreamStarted() {
  const size_t Block = std::max<size_t>(GetOutputBufferSize(), 1);
  const unsigned Channels = static_cast<unsigned>(std::min<size_t>(GetInputPins().CountLocked(), 65535));
  FWorkBuffer = TSRAudioBuffer::Create(Channels, Block, FFormat.GetBits(), FFormat.GetSampleRate());
  FChannel = TSRAudioBuffer::Create(1, Block, FFormat.GetBits(), FFormat.GetSampleRate());
}

void TSRChannelJoiner::CalculateSendOutput() {
  const size_t Samples = GetCurrentBlockSize();
  if (!FWorkBuffer || !FChannel || !FWorkBuffer->SetSampleCount(Samples) || !FChannel->SetSampleCount(Samples))
    return;
  for (unsigned C = 0; C < FWorkBuffer->GetChannels() && C < GetInputPins().CountLocked(); ++C) {
    InputAt(C)->StretchLoadBuffer(*FChannel);
    CopyChannel(*FChannel, 0, *FWorkBuffer, C);
  }
  if (GetOutputPins().CountLocked()) OutputAt(0)->SubmitBuffer(FWorkBuffer);
}

void TSRChannelJoiner::IntStop() {
  TSRBasicMultiInput::IntStop();
  FChannel.Reset();
}

// ---- splitter ----------------------------------------------------------------------

TSRChannelSplitter::TSRChannelSplitter(TWBComponent* Owner, size_t Channels) : TSRBasicMultiInput(Owner, 1, 0) {
  GetInputPins().Get(0)->SetName("Input");
  SetChannels(Channels);
}

TSRChannelSplitter::~TSRChannelSplitter() { BeginDestroy(); }

void TSRChannelSplitter::SetChannels(size_t Value) {
  TLockGuard G(GetLock());
  if (IsStreaming()) return;
  GetOutputPins().SetCount(std::max<size_t>(Value, 1));
}

TPWBasicPin* TSRChannelSplitter::CreateOutputPin(size_t Index) {
  return new TSRPWAudioSourcePin(*this, "Channel " + std::to_string(Index + 1));
}

TSRWaveFormatExtensible TSRChannelSplitter::GetOutputFormat(size_t Index) {
  if (FChannel) return FChannel->GetWaveFormat();
  return TSRBasicMultiInput::GetOutputFormat(Index);
}

void TSRChannelSplitter::StreamStarted() {
  TSRBasicMultiInput::StreamStarted();  // the working buffer in the stream's shape
  FChannel = TSRAudioBuffer::Create(1, std::max<size_t>(GetOutputBufferSize(), 1), FFormat.GetBits(),
                                    FFormat.GetSampleRate());
}

void TSRChannelSplitter::CalculateSendOutput() {
  const size_t Samples = GetCurrentBlockSize();
  if (!FWorkBuffer || !FChannel || !FWorkBuffer->SetSampleCount(Samples) || !FChannel->SetSampleCount(Samples))
    return;
  if (GetInputPins().CountLocked()) InputAt(0)->StretchLoadBuffer(*FWorkBuffer);
  for (size_t O = 0, N = GetOutputPins().CountLocked(); O < N; ++O) {
    if (O < FWorkBuffer->GetChannels())
      CopyChannel(*FWorkBuffer, static_cast<unsigned>(O), *FChannel, 0);
    else
      SilencePcmFrames(FChannel->GetData(), 1, FChannel->GetBits(), Samples);
    OutputAt(O)->SubmitBuffer(FChannel);
  }
}

void TSRChannelSplitter::IntStop() {
  TSRBasicMultiInput::IntStop();
  FChannel.Reset();
}

// ---- published properties ---------------------------------------------------

const TWBClassInfo& TSRChannelJoiner::ClassInfo() {
  static const TWBClassInfo Info = MakeClassInfo(
      "TSRChannelJoiner", &TSRBasicMultiInput::ClassInfo(),
      {PropertyOf<TSRChannelJoiner, size_t>(
          "Channels", [](TSRChannelJoiner& J) { return J.GetChannels(); },
          [](TSRChannelJoiner& J, size_t N) { J.SetChannels(N); }, size_t(2))},
      Factory<TSRChannelJoiner>());
  return Info;
}

const TWBClassInfo& TSRChannelSplitter::ClassInfo() {
  static const TWBClassInfo Info = MakeClassInfo(
      "TSRChannelSplitter", &TSRBasicMultiInput::ClassInfo(),
      {PropertyOf<TSRChannelSplitter, size_t>(
          "Channels", [](TSRChannelSplitter& S) { return S.GetChannels(); },
          [](TSRChannelSplitter& S, size_t N) { S.SetChannels(N); }, size_t(2))},
      Factory<TSRChannelSplitter>());
  return Info;
}

}  // namespace Quorvel
