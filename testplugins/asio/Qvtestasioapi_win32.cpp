// The test driver's control functions and registration on Windows: taken
// from Qvtestasio.dll, loaded from the path the build registers with COM
// (QVTESTASIO_DLL_PATH), so that tests configure the very module COM loads.
#include <string>

#include "platform/Library.h"
#include "testplugins/asio/Qvtestasio.h"

namespace Quorvel {
namespace {

// Loaded once and kept for the life of the process.
Platform::TModuleHandle Module() {
  static const Platform::TModuleHandle Handle = [] {
    std::string Text;
    unsigned Code = 0;
    return Platform::LoadCodeLibrary(QVTESTASIO_DLL_PATH, Text, Code);
  }();
  return Handle;
}

template <typename T>
bool Bind(T& Function, const char* Name) {
  Function = reinterpret_cast<T>(Platform::GetLibrarySymbol(Module(), Name));
  return Function != nullptr;
}

// HRESULT-returning entry points without arguments (HRESULT is 32 bits).
int32_t CallEntry(const char* Name) {
  int32_t (*Entry)() = nullptr;
  return Bind(Entry, Name) ? Entry() : -1;
}

}  // namespace

const TQvTestAsioApi* QvTestAsioApi() {
  static const TQvTestAsioApi* const Bound = []() -> const TQvTestAsioApi* {
    static TQvTestAsioApi Api;
    const bool Ok = Bind(Api.DefaultConfig, "QvTestAsioDefaultConfig") && Bind(Api.GetConfig, "QvTestAsioGetConfig") &&
                    Bind(Api.SetConfig, "QvTestAsioSetConfig") && Bind(Api.SetFailure, "QvTestAsioSetFailure") &&
                    Bind(Api.Reset, "QvTestAsioReset") && Bind(Api.GetStats, "QvTestAsioGetStats") &&
                    Bind(Api.ReadCapture, "QvTestAsioReadCapture") && Bind(Api.Message, "QvTestAsioSendMessage") &&
                    Bind(Api.Step, "QvTestAsioStep") &&
                    Bind(Api.Create, "QvTestAsioCreate") && Bind(Api.BusyCount, "QvTestAsioBusyCount") &&
                    Bind(Api.CanUnloadNow, "DllCanUnloadNow");
    return Ok ? &Api : nullptr;
  }();
  return Bound;
}

bool QvTestAsioRegisterDrivers() { return CallEntry("DllRegisterServer") == 0; }

bool QvTestAsioUnregisterDrivers() { return CallEntry("DllUnregisterServer") == 0; }

}  // namespace Quorvel
