#include "media/Srdstosinkfilter.h"

#include "dshow/Dsaudiosourcefilter.h"
#include "dshow/Dscom.h"

#include <algorithm>

namespace Quorvel {

using Threading::TLockGuard;
using namespace Dshow;

namespace {
constexpr int64_t UnitsPerSecond = 10000000;  // 100-nanosecond units
}

TSRDSToSinkFilter::TSRDSToSinkFilter(TWBComponent* Owner)
    : TWBComponent(Owner),
      FInputPin(*this, "Input"),
      FSinkFilter(TDSCategory::dcAudioRenderer),
      FGraph([this](const std::string& Text, int32_t Code) { Error(Text, Code); }) {}

TSRDSToSinkFilter::~TSRDSToSinkFilter() {
  BeginDestroy();
  TLockGuard G(GetLock());
  DestroyGraph();
}

void TSRDSToSinkFilter::SinkDispatch(TPWBasicPin* SourcePin, TPWBasicPin* SinkPin, TPWOperationID ID,
                                     TPWOperation& Operation, TPWNotifyStates& States) {
  if (SinkPin != &FInputPin) return;
  AudioSinkDispatch(ID, Operation);
  States.Include(TPWNotifyState::pnsHandled);
}

void TSRDSToSinkFilter::AudioSinkDispatch(TPWOperationID ID, TPWOperation& Operation) {
  switch (ID) {
    case poidStartWave: {
      auto& Start = static_cast<TPWStartWaveOperation&>(Operation);
      // A stream that starts while another runs ends that one first.
      TryEndAVI();
      SetAudioFormat(Start.GetFormat());
      BeginAudio();
      break;
    }
    case poidSuppliedBuffer:
      if (ISRAudioBuffer* Buffer = static_cast<TPWSuppliedBufferOperation&>(Operation).GetAudioBuffer())
        RenderAudio(true, *Buffer);
      break;
    case poidStop:
      TryEndAVI();
      break;
    default:
      break;
  }
}

void TSRDSToSinkFilter::BeginAudio() {
  TLockGuard G(GetLock());
  FTiming = TTiming{};
  FFirstBuffer = true;
  FAudioBegun = true;
  FStreamEnded = false;
  FLastDelivery = 0;
  GetGraph();
}

void TSRDSToSinkFilter::RenderAudio(bool Send, ISRAudioBuffer& Buffer) {
  TLockGuard G(GetLock());
  IntRenderAudio(Send, Buffer);
}

void TSRDSToSinkFilter::IntRenderAudio(bool Send, ISRAudioBuffer& Buffer) {
  if (!FGraphBuilt || !FSource) return;
  const uint32_t Rate = FFormat.Format.nSamplesPerSec;
  if (Rate == 0) return;  // the format is set before rendering; never divide by a zero rate
  const int64_t Samples = int64_t(Buffer.GetSamples());
  const int64_t Duration = Samples * UnitsPerSecond / int64_t(Rate);
  int64_t Start = FTiming.NextStart;
  if (Buffer.HasStreamTime()) {
    int64_t Gap = 0;
    if (FFirstBuffer) {
      // The first buffer's sequence number is not kept: the next one is
      // compared with 0, as the component always did.
      FFirstBuffer = false;
    } else if (Buffer.HasSequenceNumber()) {
      // A jump of the sequence number means buffers were lost: their time
      // is not added as a gap.
      if (Buffer.GetSequenceNumber() <= FTiming.LastSequence + 1) Gap = Buffer.GetStreamStart() - FTiming.LastStreamTime;
      FTiming.LastSequence = Buffer.GetSequenceNumber();
    } else {
      Gap = Buffer.GetStreamStart() - FTiming.LastStreamTime;
    }
    FTiming.LastStreamTime = Buffer.GetStreamEnd();
    // A gap in the stream is kept as time, not filled with samples.
    if (Send && Gap >= 1) Start += Gap;
  }
  const int64_t End = Send ? Start + Duration : Start;
  FTiming.NextStart = End;
  if (Samples > 0 && Send) {
    const size_t Bytes = std::min(size_t(Samples) * FFormat.Format.nBlockAlign, Buffer.GetSize());
    const int32_t R = FSource->Deliver(Buffer.GetData(), Bytes, Start, End);
    if (R < 0) FLastDelivery = R;
  }
}

void TSRDSToSinkFilter::SetAudioFormat(const TSRWaveFormatExtensible& Format) {
  TLockGuard G(GetLock());
  FFormat = Format;
}

void TSRDSToSinkFilter::ClearAudioFormat() {
  TLockGuard G(GetLock());
  FFormat = TSRWaveFormatExtensible{};
}

TDSGraph& TSRDSToSinkFilter::GetGraph() {
  TLockGuard G(GetLock());
  if (!FGraph.Exists()) BuildGraph();
  return FGraph;
}

void TSRDSToSinkFilter::BuildGraph() {
  TLockGuard G(GetLock());
  if (FGraph.Exists() || !FSinkFilter.IsSelected()) return;
  // 1. Graph, additional filters, capture graph builder, media control.
  if (!FGraph.Create()) return;
  // However the build leaves before it is done (a failed step, or the error
  // its report raises when nobody handles it), no half-built graph stays
  // behind holding the chosen filter.
  struct TUndo {
    TSRDSToSinkFilter* Owner;
    ~TUndo() {
      if (Owner) Owner->DestroyGraph();
    }
  } Undo{this};
  bool Ok = false;
  do {
    // 2. The chosen filter's object. Deliberately the same text as the push
    // source's step: kept so that messages read as they always did.
    IMoniker* Moniker = FSinkFilter.GetMoniker();
    if (!FGraph.Check(Moniker ? S_OK : E_POINTER, "Can't set audio source filter.")) break;
    TComPtr<IBaseFilter> Sink;
    if (!FGraph.Check(Moniker->BindToObject(nullptr, nullptr, IID_IBaseFilter, Sink.PutVoid()),
                      "Can't set audio source filter."))
      break;
    // 3. Into the graph.
    if (!FGraph.Check(FGraph.GetGraph()->AddFilter(Sink.Get(), L"Sink Filter"), "Can't render audio output.")) break;
    // 4. The user's set-up of the new filter (a file name, further filters).
    if (FSinkFilter.OnFilterCreated) FSinkFilter.OnFilterCreated(Sink.Get());
    // 5. Our push source for the current format.
    FSource = std::make_unique<TDSAudioSourceFilter>(FFormat);
    if (!FGraph.Check(FGraph.GetGraph()->AddFilter(FSource->GetFilter(), L"AudioSource"),
                      "Can't set audio source filter."))
      break;
    // 6. Connect it to the sink filter, with whatever converters it takes.
    if (!FGraph.Check(FGraph.GetBuilder()->RenderStream(nullptr, &MEDIATYPE_Audio, FSource->GetFilter(), nullptr,
                                                        Sink.Get()),
                      "Can't render audio output."))
      break;
    Ok = true;
  } while (false);
  if (!Ok) return;
  Undo.Owner = nullptr;
  // 7. Built; run, and make the running graph visible.
  FGraphBuilt = true;
  FGraph.GraphBuilt();
  if (SUCCEEDED(FGraph.Run())) {
    FGraph.Register();
    FGraph.GraphChanged();
  }
}

void TSRDSToSinkFilter::DestroyGraph() {
  TLockGuard G(GetLock());
  FGraphBuilt = false;
  FGraph.Destroy();
  DisconnectInterfaces();
}

void TSRDSToSinkFilter::DisconnectInterfaces() {
  TLockGuard G(GetLock());
  FSource.reset();
}

void TSRDSToSinkFilter::TryEndAVI() {
  TLockGuard G(GetLock());
  if (FAudioBegun) EndAVI();
}

void TSRDSToSinkFilter::EndAVI() {
  TLockGuard G(GetLock());
  if (FSource) FSource->DeliverEndOfStream();
  DestroyGraph();
  FStreamEnded = true;
  FAudioBegun = false;
}

bool TSRDSToSinkFilter::IsGraphBuilt() const { return FGraphBuilt; }
bool TSRDSToSinkFilter::IsAudioBegun() const { return FAudioBegun; }
bool TSRDSToSinkFilter::IsStreamEnded() const { return FStreamEnded; }

int64_t TSRDSToSinkFilter::GetNextStartTime() const {
  TLockGuard G(GetLock());
  return FTiming.NextStart;
}

int32_t TSRDSToSinkFilter::GetLastDeliveryResult() const { return FLastDelivery; }

}  // namespace Quorvel
