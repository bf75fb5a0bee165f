#include "package/Quorvelpackage.h"

#include <iterator>

#include "asio/Srasioaudiodevice.h"
#include "vst2/Srvsthost.h"
#include "vst3/Srvst3host.h"

namespace Quorvel::Package {
namespace {

// The component units in the package's unit order, then the units that
// register nothing.
const TUnitInfo kUnits[] = {
    {"Srasioaudiodevice", "TSRASIOAudioDevice", &Srasioaudiodevice::RegisterPkg, &Srasioaudiodevice::UnregisterPkg},
    {"Srvsthost", "TSRVSTHost", &Srvsthost::RegisterPkg, &Srvsthost::UnregisterPkg},
    {"Srvst3host", "TSRVST3Host", &Srvst3host::RegisterPkg, &Srvst3host::UnregisterPkg},
    {"Srvsteffectintf", nullptr, nullptr, nullptr},
    {"Vst3hostintf", nullptr, nullptr, nullptr},
    {"Asiointerface", nullptr, nullptr, nullptr},
    {"Srasiodevice", nullptr, nullptr, nullptr},
    {"Srasiocallbackentries", nullptr, nullptr, nullptr},
};

const TPackageInfoTable kTable{"Quorvel", std::size(kUnits), kUnits};
bool GInitialized = false;

}  // namespace

const TPackageInfoTable& GetPackageInfoTable() { return kTable; }

void Initialize() {
  if (GInitialized) return;
  GInitialized = true;
  for (const TUnitInfo& U : kUnits)
    if (U.Initialize) U.Initialize();
}

void Finalize() {
  if (!GInitialized) return;
  GInitialized = false;
  for (size_t I = std::size(kUnits); I-- > 0;)
    if (kUnits[I].Finalize) kUnits[I].Finalize();
}

bool IsInitialized() { return GInitialized; }

}  // namespace Quorvel::Package
