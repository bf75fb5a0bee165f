#include "frame/Wbthreadedfilter.h"

#include <cstring>

namespace Quorvel {

using Threading::TLockGuard;

// The input pin hands operations over without the component lock: the
// processing thread holds that lock while it works, and a sender waiting
// for room in the queue must not hold it.
class TWBBasicTypedThreadedFilter::TInputPin final : public TSRPWAudioSinkPin {
 public:
  using TSRPWAudioSinkPin::TSRPWAudioSinkPin;

 protected:
  void Receive(TPWBasicPin& Source, TPWOperation& Operation, TPWNotifyStates& States) override {
    if (GetOwner().IsPinOwnerDestroying()) return;
    GetOwner().SinkDispatch(&Source, this, Operation.GetID(), Operation, States);
  }
};

TWBBasicTypedThreadedFilter::TWBBasicTypedThreadedFilter(TWBComponent* Owner, size_t QueueCapacity)
    : TWBComponent(Owner),
      FFormat(this, &GetLock(), nullptr),
      FInputPin(std::make_unique<TInputPin>(*this, "Input")),
      FOutputPin(*this, "Output"),
      FQueue(QueueCapacity ? QueueCapacity : 1) {}

TWBBasicTypedThreadedFilter::~TWBBasicTypedThreadedFilter() {
  BeginDestroy();
  {
    std::lock_guard<std::mutex> G(FQueueMutex);
    FClosing = true;
  }
  FQueueCond.notify_all();
  if (FThread) FThread->WaitFor();
  FInputPin.reset();
}

void TWBBasicTypedThreadedFilter::CreateProcessingThread() {
  if (!FThread)
    FThread = std::make_unique<Threading::TProcessingThread>(this, [this](IWBFilterThread& T) { Process(T); });
}

void TWBBasicTypedThreadedFilter::Enqueue(TItem&& Item) {
  {
    std::unique_lock<std::mutex> L(FQueueMutex);
    if (!FThread) CreateProcessingThread();
    FQueueCond.wait(L, [this] { return FCount < FQueue.size() || FClosing; });
    if (FClosing) return;
    FQueue[(FHead + FCount) % FQueue.size()] = std::move(Item);
    ++FCount;
  }
  FThread->Signal();
}

void TWBBasicTypedThreadedFilter::SinkDispatch(TPWBasicPin* SourcePin, TPWBasicPin* SinkPin, TPWOperationID ID,
                                               TPWOperation& Operation, TPWNotifyStates& States) {
  TItem Item;
  Item.ID = ID;
  switch (ID) {
    case poidStartWave: {
      auto& Op = static_cast<TPWStartWaveOperation&>(Operation);
      Item.Format = Op.GetFormat();
      Item.SampleRate = Op.GetSampleRate();
      Item.RealTime = Op.GetRealTime();
      break;
    }
    case poidSuppliedBuffer: {
      const ISRAudioBuffer* In = static_cast<TPWSuppliedBufferOperation&>(Operation).GetAudioBuffer();
      if (!In) {
        States.Include(TPWNotifyState::pnsRefused);
        return;
      }
      // The sender lends its buffer only for this call: keep a copy.
      auto Copy = TSRAudioBuffer::Create(In->GetChannels(), In->GetSamples(), In->GetBits(), In->GetSampleRate(),
                                         In->GetSpeakers());
      if (In->GetSize()) std::memcpy(Copy->GetData(), In->GetData(), std::min(In->GetSize(), Copy->GetSize()));
      Item.Buffer = std::move(Copy);
      break;
    }
    case poidStop:
    case poidPause:
    case poidResume: break;
    default: States.Include(TPWNotifyState::pnsRefused); return;
  }
  Enqueue(std::move(Item));
  States.Include(TPWNotifyState::pnsHandled);
}

void TWBBasicTypedThreadedFilter::SourceDispatch(TPWBasicPin* SourcePin, TPWBasicPin* SinkPin, TPWOperationID ID,
                                                 TPWOperation& Operation, TPWNotifyStates& States) {
  if (ID == poidPumpRequest || ID == poidMasterPump)
    FilterPump();
  else
    FInputPin->NotifyUpstream(Operation, States);
}

void TWBBasicTypedThreadedFilter::FilterPump() { FInputPin->PumpRequest(); }

void TWBBasicTypedThreadedFilter::Process(IWBFilterThread& Thread) {
  for (;;) {
    TItem Item;
    {
      std::lock_guard<std::mutex> G(FQueueMutex);
      if (FCount == 0 || FClosing) {
        FBusy = false;
        break;
      }
      Item = std::move(FQueue[FHead]);
      FHead = (FHead + 1) % FQueue.size();
      --FCount;
      FBusy = true;
    }
    FQueueCond.notify_all();
    TLockGuard G(GetLock());
    switch (Item.ID) {
      case poidStartWave:
        if (FFormat.SetWaveFormat(Item.Format, Item.SampleRate)) StreamStart(Item.Format, Item.RealTime);
        break;
      case poidSuppliedBuffer: BufferOperation(*Item.Buffer); break;
      case poidStop: StreamStop(); break;
      case poidPause: {
        TPWWBPauseOperation Op;
        OutputPinsNotify(Op);
        break;
      }
      case poidResume: {
        TPWWBResumeOperation Op;
        OutputPinsNotify(Op);
        break;
      }
      default: break;
    }
  }
  FQueueCond.notify_all();
}

bool TWBBasicTypedThreadedFilter::WaitUntilIdle(int64_t TimeoutMs) {
  std::unique_lock<std::mutex> L(FQueueMutex);
  return FQueueCond.wait_for(L, std::chrono::milliseconds(TimeoutMs), [this] { return FCount == 0 && !FBusy; });
}

void TWBBasicTypedThreadedFilter::BufferOperation(ISRAudioBuffer& InBuffer) {
  ISRAudioBufferRef Out(&InBuffer);
  if (IsEnabled()) IntSingleBufferOperation(InBuffer, Out);
  if (Out) FOutputPin.SubmitBuffer(Out);
}

void TWBBasicTypedThreadedFilter::IntSingleBufferOperation(ISRAudioBuffer& InBuffer, ISRAudioBufferRef& OutBuffer) {}

void TWBBasicTypedThreadedFilter::StreamStart(const TSRWaveFormatExtensible& Format, bool RealTime) {
  FOutputPin.SendStartWave(FFormat.GetWaveFormat(), RealTime);
}

void TWBBasicTypedThreadedFilter::StreamStop() { FOutputPin.SendStop(); }

void TWBBasicTypedThreadedFilter::OutputPinsNotify(TPWOperation& Operation) { FOutputPin.Notify(Operation); }

}  // namespace Quorvel
