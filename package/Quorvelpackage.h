// The package as a loadable whole: its units in the package's unit order,
// each with its initialization (a component unit's RegisterPkg, which hands
// its class to the component catalogue) and finalization. Initialize runs
// the initializations in unit order, Finalize the finalizations in reverse;
// both may be called more than once, only the first call after the other
// does anything.
#pragma once

#include <cstddef>

namespace Quorvel::Package {

struct TUnitInfo {
  const char* Name;             // "Srvsthost"
  const char* ComponentClass;   // "TSRVSTHost", or nullptr for a unit without a component
  void (*Initialize)();         // nullptr when the unit has nothing to do
  void (*Finalize)();
};

struct TPackageInfoTable {
  const char* PackageName;
  size_t UnitCount;
  const TUnitInfo* Units;
};

// [any thread] The package's units, in unit order.
const TPackageInfoTable& GetPackageInfoTable();
// [main thread]
void Initialize();
void Finalize();
bool IsInitialized();

}  // namespace Quorvel::Package
