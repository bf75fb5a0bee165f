#include "package/Quorvelpackage.h"

#include <iterator>

#include "asio/Srasioaudiodevice.h"
#include "media/Srrawlogger.h"
#include "vst2/Srvsthost.h"
#include "vst3/Srvst3host.h"
#if QUORVEL_WINDOWS_UNITS
#include "mastervolume/Srmastervolume.h"
#include "media/Sraudiocompressor.h"
#include "media/Sraudiodecompressor.h"
#include "media/Srdmoeffect.h"
#include "mixer/Srsystemmixer.h"
#endif

namespace Quorvel::Package {
namespace {

// The component units in the package's unit order, then the units that
// register nothing.
const TUnitInfo kUnits[] = {
    {"Srasioaudiodevice", "TSRASIOAudioDevice", &Srasioaudiodevice::RegisterPkg, &Srasioaudiodevice::UnregisterPkg},
    {"Srvsthost", "TSRVSTHost", &Srvsthost::RegisterPkg, &Srvsthost::UnregisterPkg},
    {"Srvst3host", "TSRVST3Host", &Srvst3host::RegisterPkg, &Srvst3host::UnregisterPkg},
    {"Srrawlogger", "TSRRawLogger", &Srrawlogger::RegisterPkg, &Srrawlogger::UnregisterPkg},
#if QUORVEL_WINDOWS_UNITS
    // The units over Windows-only system services exist only where the system has them.
    {"Srmastervolume", "TSRMasterVolume", &Srmastervolume::RegisterPkg, &Srmastervolume::UnregisterPkg},
    {"Sraudiocompressor", "TSRAudioCompressor", &Sraudiocompressor::RegisterPkg, &Sraudiocompressor::UnregisterPkg},
    {"Sraudiodecompressor", "TSRAudioDecompressor", &Sraudiodecompressor::RegisterPkg,
     &Sraudiodecompressor::UnregisterPkg},
    {"Srdmoeffect", "TSRDMOEffect", &Srdmoeffect::RegisterPkg, &Srdmoeffect::UnregisterPkg},
    {"Srsystemmixer", "TSRSystemMixer", &Srsystemmixer::RegisterPkg, &Srsystemmixer::UnregisterPkg},
#endif
    {"Srvsteffectintf", nullptr, nullptr, nullptr},
    {"Vst3hostintf", nullptr, nullptr, nullptr},
    {"Asiointerface", nullptr, nullptr, nullptr},
    {"Srasiodevice", nullptr, nullptr, nullptr},
    {"Srasiocallbackentries", nullptr, nullptr, nullptr},
#if QUORVEL_WINDOWS_UNITS
    {"Mmdeviceapi", nullptr, nullptr, nullptr},
#endif
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
