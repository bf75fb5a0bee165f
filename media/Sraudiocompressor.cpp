#include "media/Sraudiocompressor.h"

#include <cstring>

#include "frame/Wbpersistence.h"
#include "frame/Wbregistration.h"

namespace Quorvel {

using Threading::TLockGuard;

TSRAudioCompressor::TSRAudioCompressor(TWBComponent* Owner)
    : TWBComponent(Owner), FInputPin(*this, "Input"), FOutputPin(*this, "Output"), FAudioCompressions(this) {}

TSRAudioCompressor::~TSRAudioCompressor() { BeginDestroy(); }

void TSRAudioCompressor::SetAudioCompressions(const TSRAudioCompressionItems& Items) {
  TLockGuard G(GetLock());
  FAudioCompressions.Assign(Items);
}

bool TSRAudioCompressor::IsCompressing() const {
  TLockGuard G(GetLock());
  return FStarted && FCompressor.GetOpened();
}

double TSRAudioCompressor::GetDestinationRate() const {
  TLockGuard G(GetLock());
  return FDestRate;
}

std::vector<uint8_t> TSRAudioCompressor::GetDestinationFormat() const {
  TLockGuard G(GetLock());
  return FDestFormat;
}

uint64_t TSRAudioCompressor::GetBytesIn() const {
  TLockGuard G(GetLock());
  return FBytes;
}

void TSRAudioCompressor::SinkDispatch(TPWBasicPin*, TPWBasicPin*, TPWOperationID ID, TPWOperation& Operation,
                                      TPWNotifyStates& States) {
  TLockGuard G(GetLock());
  switch (ID) {
    case poidStartWave:
      BeginAudio(static_cast<TPWStartWaveOperation&>(Operation));
      break;
    case poidSuppliedBuffer: {
      auto& Op = static_cast<TPWSuppliedBufferOperation&>(Operation);
      if (ISRAudioBuffer* Buffer = Op.GetAudioBuffer())
        RenderAudio(*Buffer, false);
      else if (Op.GetBuffer())
        SendData(*Op.GetBuffer());
      break;
    }
    case poidStop:
      StreamStop();
      break;
    default:
      FOutputPin.Notify(Operation);
      break;
  }
  States.Include(TPWNotifyState::pnsHandled);
}

void TSRAudioCompressor::BeginAudio(TPWStartWaveOperation& Operation) {
  TLockGuard G(GetLock());
  FCompressor.CloseCompressor();
  FInFormat = Operation.GetFormat();
  FBits = FInFormat.Format.wBitsPerSample;
  FBlockAlign = FInFormat.Format.nBlockAlign;
  FBytes = 0;
  // A start while started closes the conversion and opens none: the
  // stream passes through until the next stop.
  if (FStarted) return;
  if (GetEnabled()) {
    const TWaveFormatEx Source = CompressionSourceFormat(FInFormat);
    for (size_t I = 0; I < FAudioCompressions.Count(); ++I) {
      const TSRAudioCompressionItem* Item = FAudioCompressions.Get(I);
      if (!Item->IsUsable()) continue;
      if (!FCompressor.OpenCompressor(Source, Item->GetFormat().data(), Item->GetFormat().size())) continue;
      FDestRate = Item->GetWaveFormat()->nSamplesPerSec;
      FDestFormat = Item->GetFormat();
      TSRStartAudioCompressionOperation Start(FDestRate, FInFormat, FDestFormat.data(), FDestFormat.size());
      FOutputPin.Notify(Start);
      FStarted = true;
      return;
    }
  }
  FOutputPin.Notify(Operation);
  FStarted = true;
}

void TSRAudioCompressor::RenderAudio(ISRAudioBuffer& Buffer, bool Last) {
  FBytes += Buffer.GetSize();
  if (!FCompressor.GetOpened()) {
    SendData(Buffer);
    return;
  }
  if (IWBDataBufferRef Block = FCompressor.CompressBuffer(Buffer.GetData(), Buffer.GetSize(), Last))
    if (Block->GetSize()) SendData(*Block);
}

void TSRAudioCompressor::SendData(IWBDataBuffer& Block) { FOutputPin.SubmitBuffer(&Block); }

void TSRAudioCompressor::StreamStop() {
  TLockGuard G(GetLock());
  if (FCompressor.GetOpened()) {
    if (IWBDataBufferRef Rest = FCompressor.CompressBuffer(nullptr, 0, true))
      if (Rest->GetSize()) SendData(*Rest);
    FCompressor.CloseCompressor();
  }
  FStarted = false;
  FOutputPin.SendStop();
}

const TWBClassInfo& TSRAudioCompressor::ClassInfo() {
  static const TWBClassInfo Info = MakeClassInfo(
      "TSRAudioCompressor", &TWBComponent::ClassInfo(),
      {Collection<TSRAudioCompressor>(
          "AudioCompressions", TSRAudioCompressionItem::ClassInfo(),
          [](TSRAudioCompressor& C) { return C.GetAudioCompressions().Count(); },
          [](TSRAudioCompressor& C, size_t N, std::string&) {
            C.GetAudioCompressions().SetCount(N);
            return true;
          },
          [](TSRAudioCompressor& C, size_t I) -> void* { return C.GetAudioCompressions().Get(I); })},
      Factory<TSRAudioCompressor>());
  return Info;
}

namespace Sraudiocompressor {
void RegisterPkg() { Design::Components::RegisterComponents({&TSRAudioCompressor::ClassInfo()}); }
void UnregisterPkg() { Design::Components::UnregisterComponents({&TSRAudioCompressor::ClassInfo()}); }
}  // namespace Sraudiocompressor

}  // namespace Quorvel
