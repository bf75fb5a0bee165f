#include "package/Quorvelpackageexports.h"

#include "frame/Wbcomponent.h"
#include "frame/Wbpersistence.h"
#include "frame/Wbregistration.h"
#include "package/Quorvelpackage.h"

using namespace Quorvel;

extern "C" {

void Initialize(void) { Package::Initialize(); }
void Finalize(void) { Package::Finalize(); }

size_t GetPackageInfoTable(void) { return Package::GetPackageInfoTable().UnitCount; }

const char* GetPackageUnitName(size_t Index) {
  const auto& T = Package::GetPackageInfoTable();
  return Index < T.UnitCount ? T.Units[Index].Name : nullptr;
}

const char* GetPackageUnitClass(size_t Index) {
  const auto& T = Package::GetPackageInfoTable();
  return Index < T.UnitCount ? T.Units[Index].ComponentClass : nullptr;
}

size_t QuorvelComponentCount(void) { return Design::Components::GetRegisteredComponents().size(); }

const char* QuorvelComponentClass(size_t Index) {
  const auto All = Design::Components::GetRegisteredComponents();
  return Index < All.size() ? All[Index]->ClassName.c_str() : nullptr;
}

void* QuorvelCreateComponent(const char* ClassName) {
  if (!ClassName) return nullptr;
  try {
    return Design::Components::CreateComponent(ClassName, nullptr);
  } catch (...) {
    return nullptr;  // nothing raises across the library's edge
  }
}

const char* QuorvelComponentClassOf(void* Component) {
  return Component ? static_cast<TWBComponent*>(Component)->GetClassInfo().ClassName.c_str() : nullptr;
}

void QuorvelDestroyComponent(void* Component) { delete static_cast<TWBComponent*>(Component); }

}  // extern "C"
