// The test driver's control functions and registration where the driver is
// linked into the program: the functions themselves and the in-process
// driver catalogue.
#include <string>

#include "platform/Asiodrivers.h"
#include "testplugins/asio/Qvtestasio.h"

namespace Quorvel {
namespace {

int32_t CanUnloadNow() { return QvTestAsioBusyCount() == 0 ? 0 : 1; }

}  // namespace

const TQvTestAsioApi* QvTestAsioApi() {
  static const TQvTestAsioApi Api = {
      &QvTestAsioDefaultConfig, &QvTestAsioGetConfig, &QvTestAsioSetConfig, &QvTestAsioSetFailure,
      &QvTestAsioReset,         &QvTestAsioGetStats,  &QvTestAsioReadCapture, &QvTestAsioSendMessage,
      &QvTestAsioStep,          &QvTestAsioCreate,    &QvTestAsioBusyCount,   &CanUnloadNow};
  return &Api;
}

bool QvTestAsioRegisterDrivers() {
  for (int32_t Slot = 0; Slot < QvTestAsioDriverCount; ++Slot) {
    const std::string Clsid = QvTestAsioClsidTexts[Slot];
    Asiodrivers::CatalogueAddKey(QvTestAsioNames[Slot], &Clsid);
    // As a class factory does: a new object asked for the interface.
    Asiodrivers::CatalogueRegisterClass(QvTestAsioClsids[Slot], [Slot](const TGUID& Iid) -> void* {
      IASIO* Driver = QvTestAsioCreate(Slot);
      if (!Driver) return nullptr;
      void* Object = nullptr;
      Driver->QueryInterface(Iid, &Object);
      Driver->Release();
      return Object;
    });
  }
  return true;
}

bool QvTestAsioUnregisterDrivers() {
  for (int32_t Slot = 0; Slot < QvTestAsioDriverCount; ++Slot) {
    Asiodrivers::CatalogueRemoveKey(QvTestAsioNames[Slot]);
    Asiodrivers::CatalogueUnregisterClass(QvTestAsioClsids[Slot]);
  }
  return true;
}

}  // namespace Quorvel
