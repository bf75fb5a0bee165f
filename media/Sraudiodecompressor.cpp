#include "media/Sraudiodecompressor.h"

#include "frame/Wbpersistence.h"
#include "frame/Wbregistration.h"

// clang-format off
#include <windows.h>
#include <mmreg.h>
#include <msacm.h>
// clang-format on

#include <algorithm>
#include <cstring>

namespace Quorvel {

using Threading::TLockGuard;

struct TSRAudioDecompressor::TImpl {
  HACMSTREAM* Handle = nullptr;  // allocated on first use
  HACMSTREAM Storage = nullptr;
  bool FirstBlock = true;
  WAVEFORMATEX Output{};
  std::vector<uint8_t> Work;     // the codec's output
  std::vector<uint8_t> Pending;  // source bytes the codec left for the next block
};

TSRAudioDecompressor::TSRAudioDecompressor(TWBComponent* Owner)
    : TWBComponent(Owner),
      FInputPin(*this, "Input"),
      FOutputPin(*this, "Output"),
      FDecompressions(this),
      FAudioFormat(this, &GetLock(), nullptr),
      FImpl(std::make_unique<TImpl>()) {}

TSRAudioDecompressor::~TSRAudioDecompressor() {
  BeginDestroy();
  CloseStream();
}

void TSRAudioDecompressor::SetDecompressions(const TSRAudioCompressionItems& Items) {
  TLockGuard G(GetLock());
  FDecompressions.Assign(Items);
}

bool TSRAudioDecompressor::IsDecompressing() const {
  TLockGuard G(GetLock());
  return FImpl->Handle && *FImpl->Handle;
}

void TSRAudioDecompressor::SinkDispatch(TPWBasicPin*, TPWBasicPin*, TPWOperationID ID, TPWOperation& Operation,
                                        TPWNotifyStates& States) {
  TLockGuard G(GetLock());
  switch (ID) {
    case TSRStartAudioCompressionOperation::ID:
    case poidStartSampleRate: {
      BeginAudio(ID == poidStartSampleRate ? static_cast<TPWStartSampleRateOperation&>(Operation).GetSampleRate()
                                           : static_cast<TSRStartAudioCompressionOperation&>(Operation).GetRate());
      if (IsDecompressing())
        FOutputPin.SendStartWave(FAudioFormat.GetWaveFormat());
      else
        FOutputPin.Notify(Operation);
      break;
    }
    case poidSuppliedBuffer:
      if (IWBDataBuffer* Block = static_cast<TPWSuppliedBufferOperation&>(Operation).GetBuffer())
        RenderAudio(*Block, false);
      break;
    case poidStop:
      StreamStop();
      break;
    default:
      FOutputPin.Notify(Operation);
      break;
  }
  States.Include(TPWNotifyState::pnsHandled);
}

void TSRAudioDecompressor::CloseStream() {
  if (FImpl->Handle && *FImpl->Handle) {
    acmStreamClose(*FImpl->Handle, 0);
    *FImpl->Handle = nullptr;
  }
  FImpl->Pending.clear();
}

void TSRAudioDecompressor::BeginAudio(double Rate) {
  TLockGuard G(GetLock());
  CloseStream();
  if (!GetEnabled()) return;
  TImpl& I = *FImpl;
  if (!I.Handle) I.Handle = &I.Storage;
  const TSRWaveFormatExtensible Wanted = FAudioFormat.GetWaveFormat();
  std::memcpy(&I.Output, &Wanted.Format, sizeof I.Output);
  I.Output.wFormatTag = WAVE_FORMAT_PCM;
  I.Output.cbSize = 0;
  for (size_t N = 0; N < FDecompressions.Count(); ++N) {
    const TSRAudioCompressionItem* Item = FDecompressions.Get(N);
    if (!Item->IsUsable()) continue;
    std::vector<uint8_t> Source = Item->GetFormat();
    if (acmStreamOpen(I.Handle, nullptr, reinterpret_cast<WAVEFORMATEX*>(Source.data()), &I.Output, nullptr, 0, 0,
                      ACM_STREAMOPENF_NONREALTIME) == MMSYSERR_NOERROR) {
      I.FirstBlock = true;
      return;
    }
    *I.Handle = nullptr;
  }
}

void TSRAudioDecompressor::RenderAudio(IWBDataBuffer& Block, bool Last) {
  TImpl& I = *FImpl;
  if (!I.Handle || !*I.Handle) {
    FOutputPin.SubmitBuffer(&Block);
    return;
  }
  // The source: the block itself, or what the last block left followed by it.
  const uint8_t* Source = Block.GetData();
  size_t SourceSize = Block.GetSize();
  if (!I.Pending.empty()) {
    I.Pending.insert(I.Pending.end(), Block.GetData(), Block.GetData() + Block.GetSize());
    Source = I.Pending.data();
    SourceSize = I.Pending.size();
  }
  if (SourceSize == 0 || SourceSize > 0xFFFFFFFFu) return;
  DWORD OutSize = 0;
  if (acmStreamSize(*I.Handle, DWORD(SourceSize), &OutSize, 0) != MMSYSERR_NOERROR || OutSize == 0) {
    // Less than one block of the codec: keep it for the next.
    if (I.Pending.empty()) I.Pending.assign(Source, Source + SourceSize);
    return;
  }
  const size_t Align = std::max<size_t>(I.Output.nBlockAlign, 1);
  if (I.Work.size() < OutSize) I.Work.resize((OutSize / Align + 1) * Align);

  ACMSTREAMHEADER Header = {};
  Header.cbStruct = sizeof Header;
  Header.pbSrc = const_cast<uint8_t*>(Source);
  Header.cbSrcLength = DWORD(SourceSize);
  Header.pbDst = I.Work.data();
  Header.cbDstLength = DWORD(I.Work.size());
  if (acmStreamPrepareHeader(*I.Handle, &Header, 0) != MMSYSERR_NOERROR) return;
  DWORD Flags = ACM_STREAMCONVERTF_BLOCKALIGN;
  if (I.FirstBlock) {
    Flags = ACM_STREAMCONVERTF_START | ACM_STREAMCONVERTF_BLOCKALIGN;
    I.FirstBlock = false;
  }
  // Deliberately 0x30 on the last block, the start bit as well as the end
  // bit: kept as the component always passed it.
  if (Last) Flags |= 0x30;
  const MMRESULT Result = acmStreamConvert(*I.Handle, &Header, Flags);
  const size_t Used = std::min<size_t>(Header.cbSrcLengthUsed, SourceSize);
  const size_t Produced = std::min<size_t>(Header.cbDstLengthUsed, I.Work.size());
  if (Result == MMSYSERR_NOERROR && Produced / Align > 0) {
    const TSRWaveFormatExtensible F = FAudioFormat.GetWaveFormat();
    const uint32_t Mask = FAudioFormat.GetChannelMask();
    auto Out = TSRAudioBuffer::Create(F.Format.nChannels, Produced / Align, F.Format.wBitsPerSample,
                                      FAudioFormat.GetSampleRate(),
                                      Mask ? TSRSpeakers::FromMask(Mask) : DefaultSpeakers(F.Format.nChannels));
    std::memcpy(Out->GetData(), I.Work.data(), Out->GetSize());
    SendData(*Out);
  }
  Header.cbSrcLength = DWORD(SourceSize);
  Header.cbDstLength = DWORD(I.Work.size());
  acmStreamUnprepareHeader(*I.Handle, &Header, 0);
  // What the codec did not take waits for the next block.
  if (Result != MMSYSERR_NOERROR || Last) {
    I.Pending.clear();
  } else if (Source == I.Pending.data()) {
    I.Pending.erase(I.Pending.begin(), I.Pending.begin() + std::ptrdiff_t(Used));
  } else {
    I.Pending.assign(Source + Used, Source + SourceSize);
  }
}

void TSRAudioDecompressor::SendData(ISRAudioBuffer& Buffer) { FOutputPin.SubmitBuffer(&Buffer); }

void TSRAudioDecompressor::StreamStop() {
  TLockGuard G(GetLock());
  CloseStream();
  FOutputPin.SendStop();
}

const TWBClassInfo& TSRAudioDecompressor::ClassInfo() {
  using D = TSRAudioDecompressor;
  static const TWBClassInfo Info = MakeClassInfo(
      "TSRAudioDecompressor", &TWBComponent::ClassInfo(),
      {PropertyOf<D, double>(
           "SampleRate", [](D& C) { return C.GetAudioFormat().GetSampleRate(); },
           [](D& C, double V) { C.GetAudioFormat().SetSampleRate(V); }, 44100.0),
       PropertyOf<D, unsigned>(
           "Channels", [](D& C) { return C.GetAudioFormat().GetCountChannels(); },
           [](D& C, unsigned V) { C.GetAudioFormat().SetCountChannels(V); }, 2u),
       PropertyOf<D, unsigned>(
           "Bits", [](D& C) { return C.GetAudioFormat().GetBits(); },
           [](D& C, unsigned V) { C.GetAudioFormat().SetBits(V); }, 16u),
       Collection<D>(
           "Decompressions", TSRAudioCompressionItem::ClassInfo(),
           [](D& C) { return C.GetDecompressions().Count(); },
           [](D& C, size_t N, std::string&) {
             C.GetDecompressions().SetCount(N);
             return true;
           },
           [](D& C, size_t I) -> void* { return C.GetDecompressions().Get(I); })},
      Factory<D>());
  return Info;
}

namespace Sraudiodecompressor {
void RegisterPkg() { Design::Components::RegisterComponents({&TSRAudioDecompressor::ClassInfo()}); }
void UnregisterPkg() { Design::Components::UnregisterComponents({&TSRAudioDecompressor::ClassInfo()}); }
}  // namespace Sraudiodecompressor

}  // namespace Quorvel
