#include "frame/Srcommonfilter.h"

#include "frame/Wbpersistence.h"

namespace Quorvel {

TSRCommonFilter::TSRCommonFilter(TWBComponent* Owner)
    : TWBComponent(Owner),
      FFormat(this, &GetLock(), nullptr),
      FInputPin(*this, "Input"),
      FOutputPin(*this, "Output") {}

TSRCommonFilter::~TSRCommonFilter() { BeginDestroy(); }

void TSRCommonFilter::SinkDispatch(TPWBasicPin* SourcePin, TPWBasicPin* SinkPin, TPWOperationID ID,
                                   TPWOperation& Operation, TPWNotifyStates& States) {
  switch (ID) {
    case poidStartWave:
      AudioStreamStart(static_cast<TPWStartWaveOperation&>(Operation));
      break;
    case poidSuppliedBuffer: {
      if (!FStreaming.load()) {
        States.Include(TPWNotifyState::pnsRefused);
        return;
      }
      auto& Op = static_cast<TPWSuppliedBufferOperation&>(Operation);
      if (!Op.GetBuffer()) return;
      if (ISRAudioBuffer* In = Op.GetAudioBuffer()) {
        ISRAudioBufferRef Out(In);
        bool Send = true;
        InternalOperation(*In, Out, FPumped, Send);
        if (Send && Out && NeedsOutput()) FOutputPin.SubmitBuffer(Out);
      } else {
        IWBDataBufferRef Out(Op.GetBuffer());
        IntBufferOperation(*Op.GetBuffer(), Out);
        if (Out && NeedsOutput()) FOutputPin.SubmitBuffer(Out.Get());
      }
      break;
    }
    case poidStop:
      if (FStreaming.exchange(false)) StreamStop();
      break;
    default:
      IntSingleOperation(Operation);
      break;
  }
  States.Include(TPWNotifyState::pnsHandled);
}

void TSRCommonFilter::SourceDispatch(TPWBasicPin* SourcePin, TPWBasicPin* SinkPin, TPWOperationID ID,
                                     TPWOperation& Operation, TPWNotifyStates& States) {
  FPumped = true;
  switch (ID) {
    case poidMasterPump: MasterPump(Operation); break;
    case poidPumpRequest: PumpRequest(Operation); break;
    case poidStartPump: StartPump(Operation); break;
    default: FInputPin.NotifyUpstream(Operation, States); break;
  }
  FPumped = false;
}

void TSRCommonFilter::AudioStreamStart(TPWStartWaveOperation& Operation) {
  if (!FFormat.SetWaveFormat(Operation.GetFormat(), Operation.GetSampleRate())) {
    Warning("Unsupported stream format", -1);
    return;
  }
  if (!CanStart()) return;
  FStreaming = true;
  FOutputPin.SendStartWave(GetOutputFormat(), Operation.GetRealTime());
}

void TSRCommonFilter::StreamStop() { FOutputPin.SendStop(); }

void TSRCommonFilter::IntBufferOperation(IWBDataBuffer& InBuffer, IWBDataBufferRef& OutBuffer) {}

void TSRCommonFilter::IntSingleOperation(TPWOperation& Operation) { FOutputPin.Notify(Operation); }

void TSRCommonFilter::InternalOperation(ISRAudioBuffer& InBuffer, ISRAudioBufferRef& OutBuffer, bool Pumped,
                                        bool& SendOutput) {}

void TSRCommonFilter::MasterPump(TPWOperation& Operation) { FInputPin.NotifyUpstream(Operation); }
void TSRCommonFilter::PumpRequest(TPWOperation& Operation) { FInputPin.NotifyUpstream(Operation); }
void TSRCommonFilter::StartPump(TPWOperation& Operation) { FInputPin.NotifyUpstream(Operation); }


const TWBClassInfo& TSRCommonFilter::ClassInfo() {
  static const TWBClassInfo Info = MakeClassInfo("TSRCommonFilter", &TWBComponent::ClassInfo(), {});
  return Info;
}

}  // namespace Quorvel
