#include "frame/Wbregistration.h"

#include <algorithm>
#include <mutex>

#include "frame/Srchannelcomponents.h"
#include "frame/Srdemocomponents.h"
#include "frame/Srfilecomponents.h"
#include "frame/Wbpersistence.h"

namespace Quorvel::Design::Components {
namespace {

std::mutex GLock;

std::vector<const TWBClassInfo*>& Registered() {
  static std::vector<const TWBClassInfo*> Classes;
  return Classes;
}

}  // namespace

void RegisterComponents(const std::vector<const TWBClassInfo*>& Classes) {
  std::lock_guard<std::mutex> L(GLock);
  auto& All = Registered();
  for (const TWBClassInfo* C : Classes)
    if (C && std::find(All.begin(), All.end(), C) == All.end()) All.push_back(C);
}

void UnregisterComponents(const std::vector<const TWBClassInfo*>& Classes) {
  std::lock_guard<std::mutex> L(GLock);
  auto& All = Registered();
  for (const TWBClassInfo* C : Classes) All.erase(std::remove(All.begin(), All.end(), C), All.end());
}

std::vector<const TWBClassInfo*> GetRegisteredComponents() {
  std::lock_guard<std::mutex> L(GLock);
  return Registered();
}

std::vector<const TWBClassInfo*> GetFrameComponents() {
  return {&TSRToneGenerator::ClassInfo(), &TSRGainFilter::ClassInfo(), &TSRWaveFileWriter::ClassInfo(),
          &TSRAudioFileSource::ClassInfo(), &TSRAudioFileSink::ClassInfo(), &TSRChannelJoiner::ClassInfo(),
          &TSRChannelSplitter::ClassInfo()};
}

const TWBClassInfo* FindComponentClass(const std::string& ClassName) {
  for (const TWBClassInfo* C : GetRegisteredComponents())
    if (C->ClassName == ClassName) return C;
  for (const TWBClassInfo* C : GetFrameComponents())
    if (C->ClassName == ClassName) return C;
  return nullptr;
}

TWBComponent* CreateComponent(const std::string& ClassName, TWBComponent* Owner) {
  const TWBClassInfo* C = FindComponentClass(ClassName);
  return C && C->Create ? C->Create(Owner) : nullptr;
}

}  // namespace Quorvel::Design::Components
