#include "frame/Srcommonlogger.h"

#include "frame/Wbpersistence.h"

namespace Quorvel {

using Threading::TLockGuard;

TSRCommonLogger::TSRCommonLogger(TWBComponent* Owner) : TWBComponent(Owner), FInputPin(*this, "Input") {}

TSRCommonLogger::~TSRCommonLogger() { BeginDestroy(); }

void TSRCommonLogger::SetFileName(const std::string& Value) {
  TLockGuard G(GetLock());
  FFileName = Value;
}

std::string TSRCommonLogger::GetFileName() const {
  TLockGuard G(GetLock());
  return FFileName;
}

bool TSRCommonLogger::HasTarget() const { return GetEnabled() && !GetFileName().empty(); }

void TSRCommonLogger::CloseLog() {
  TLockGuard G(GetLock());
  if (FLogging.exchange(false)) EndAudio();
}

void TSRCommonLogger::SinkDispatch(TPWBasicPin* SourcePin, TPWBasicPin* SinkPin, TPWOperationID ID,
                                   TPWOperation& Operation, TPWNotifyStates& States) {
  TLockGuard G(GetLock());
  switch (ID) {
    case poidStartWave: {
      const auto& Start = static_cast<TPWStartWaveOperation&>(Operation);
      CloseLog();
      FLogging = true;
      BeginAudio(&Start.GetFormat());
      break;
    }
    case poidSuppliedBuffer: {
      ISRAudioBuffer* Buffer = static_cast<TPWSuppliedBufferOperation&>(Operation).GetAudioBuffer();
      if (!FLogging.load() || !Buffer || !RenderAudio(*Buffer)) {
        States.Include(TPWNotifyState::pnsRefused);
        return;
      }
      break;
    }
    case poidStop:
      CloseLog();
      break;
    default:
      break;
  }
  States.Include(TPWNotifyState::pnsHandled);
}

const TWBClassInfo& TSRCommonLogger::ClassInfo() {
  static const TWBClassInfo Info = MakeClassInfo(
      "TSRCommonLogger", &TWBComponent::ClassInfo(),
      {Property("FileName", &TSRCommonLogger::GetFileName, &TSRCommonLogger::SetFileName, std::string())});
  return Info;
}

}  // namespace Quorvel
