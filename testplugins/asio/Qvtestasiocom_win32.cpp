// The DLL's COM in-process server entry points: the class factory of both
// drivers, the unload test, and their registration (HKCR\CLSID and
// HKLM\Software\ASIO), as real drivers register themselves.
// First: windows.h defines WAVE_FORMAT_PCM as a macro, which the frame's
// format header declares as a constant.
#include "testplugins/asio/Qvtestasio.h"

#include <windows.h>
#include <objbase.h>
#include <olectl.h>

#include <atomic>
#include <cstring>
#include <new>
#include <string>

namespace Quorvel {
namespace {

std::atomic<int32_t> ServerLocks{0};
std::atomic<int32_t> FactoriesAlive{0};

const wchar_t* const ThreadingModels[QvTestAsioDriverCount] = {L"Apartment", L"Both"};

std::wstring Widen(const char* Ascii) { return std::wstring(Ascii, Ascii + std::strlen(Ascii)); }

int32_t SlotOf(REFCLSID Clsid) {
  for (int32_t Slot = 0; Slot < QvTestAsioDriverCount; ++Slot)
    if (std::memcmp(&Clsid, &QvTestAsioClsids[Slot], sizeof(CLSID)) == 0) return Slot;
  return -1;
}

class TClassFactory final : public IClassFactory {
 public:
  explicit TClassFactory(int32_t Slot) : Slot(Slot) { ++FactoriesAlive; }
  TClassFactory(const TClassFactory&) = delete;
  TClassFactory& operator=(const TClassFactory&) = delete;

  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID Iid, void** Obj) noexcept override {
    if (!Obj) return E_POINTER;
    if (IsEqualIID(Iid, IID_IUnknown) || IsEqualIID(Iid, IID_IClassFactory)) {
      *Obj = static_cast<IClassFactory*>(this);
      AddRef();
      return S_OK;
    }
    *Obj = nullptr;
    return E_NOINTERFACE;
  }
  ULONG STDMETHODCALLTYPE AddRef() noexcept override { return ++References; }
  ULONG STDMETHODCALLTYPE Release() noexcept override {
    const ULONG Left = --References;
    if (Left == 0) delete this;
    return Left;
  }

  HRESULT STDMETHODCALLTYPE CreateInstance(IUnknown* Outer, REFIID Iid, void** Obj) noexcept override {
    if (!Obj) return E_POINTER;
    *Obj = nullptr;
    if (Outer) return CLASS_E_NOAGGREGATION;
    IASIO* Driver = QvTestAsioCreate(Slot);
    if (!Driver) return E_OUTOFMEMORY;
    TGUID Requested;
    std::memcpy(&Requested, &Iid, sizeof(Requested));
    const HRESULT Result = Driver->QueryInterface(Requested, Obj);
    Driver->Release();
    return Result;
  }
  HRESULT STDMETHODCALLTYPE LockServer(BOOL Lock) noexcept override {
    if (Lock)
      ++ServerLocks;
    else
      --ServerLocks;
    return S_OK;
  }

 private:
  ~TClassFactory() { --FactoriesAlive; }

  const int32_t Slot;
  std::atomic<ULONG> References{1};
};

// Full path of this DLL, as COM is to load it.
std::wstring ModulePath() {
  HMODULE Module = nullptr;
  if (!GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
                          reinterpret_cast<LPCWSTR>(&ModulePath), &Module))
    return std::wstring();
  std::wstring Path(MAX_PATH, L'\0');
  for (;;) {
    const DWORD Length = GetModuleFileNameW(Module, Path.data(), DWORD(Path.size()));
    if (Length == 0) return std::wstring();
    if (Length < Path.size()) {
      Path.resize(Length);
      return Path;
    }
    Path.resize(Path.size() * 2);
  }
}

// Sets a string value (Name nullptr: the key's default value), creating the key.
bool SetString(HKEY Root, const std::wstring& KeyPath, const wchar_t* Name, const std::wstring& Value) {
  HKEY Key = nullptr;
  if (RegCreateKeyExW(Root, KeyPath.c_str(), 0, nullptr, 0, KEY_WRITE, nullptr, &Key, nullptr) != ERROR_SUCCESS)
    return false;
  const LONG Result = RegSetValueExW(Key, Name, 0, REG_SZ, reinterpret_cast<const BYTE*>(Value.c_str()),
                                    DWORD((Value.size() + 1) * sizeof(wchar_t)));
  RegCloseKey(Key);
  return Result == ERROR_SUCCESS;
}

bool DeleteTree(HKEY Root, const std::wstring& KeyPath) {
  const LONG Result = RegDeleteTreeW(Root, KeyPath.c_str());
  return Result == ERROR_SUCCESS || Result == ERROR_FILE_NOT_FOUND;
}

std::wstring ClassKey(int32_t Slot) { return L"CLSID\\" + Widen(QvTestAsioClsidTexts[Slot]); }
std::wstring DriverKey(int32_t Slot) { return L"Software\\ASIO\\" + Widen(QvTestAsioNames[Slot]); }

}  // namespace
}  // namespace Quorvel

using namespace Quorvel;

STDAPI DllGetClassObject(REFCLSID Clsid, REFIID Iid, LPVOID* Obj) {
  if (!Obj) return E_POINTER;
  *Obj = nullptr;
  const int32_t Slot = SlotOf(Clsid);
  if (Slot < 0) return CLASS_E_CLASSNOTAVAILABLE;
  TClassFactory* Factory = new (std::nothrow) TClassFactory(Slot);
  if (!Factory) return E_OUTOFMEMORY;
  const HRESULT Result = Factory->QueryInterface(Iid, Obj);
  Factory->Release();
  return Result;
}

// Unloadable when no object, factory, server lock or driver thread is left.
STDAPI DllCanUnloadNow(void) {
  return QvTestAsioBusyCount() == 0 && FactoriesAlive == 0 && ServerLocks == 0 ? S_OK : S_FALSE;
}

STDAPI DllRegisterServer(void) try {
  const std::wstring Path = ModulePath();
  if (Path.empty()) return SELFREG_E_CLASS;
  for (int32_t Slot = 0; Slot < QvTestAsioDriverCount; ++Slot) {
    const std::wstring Name = Widen(QvTestAsioNames[Slot]);
    const std::wstring Server = ClassKey(Slot) + L"\\InprocServer32";
    if (!SetString(HKEY_CLASSES_ROOT, ClassKey(Slot), nullptr, Name) ||
        !SetString(HKEY_CLASSES_ROOT, Server, nullptr, Path) ||
        !SetString(HKEY_CLASSES_ROOT, Server, L"ThreadingModel", ThreadingModels[Slot]))
      return SELFREG_E_CLASS;
    if (!SetString(HKEY_LOCAL_MACHINE, DriverKey(Slot), L"CLSID", Widen(QvTestAsioClsidTexts[Slot])) ||
        !SetString(HKEY_LOCAL_MACHINE, DriverKey(Slot), L"Description", Name))
      return SELFREG_E_CLASS;
  }
  return S_OK;
} catch (...) {
  return E_OUTOFMEMORY;
}

STDAPI DllUnregisterServer(void) try {
  bool Ok = true;
  for (int32_t Slot = 0; Slot < QvTestAsioDriverCount; ++Slot) {
    Ok = DeleteTree(HKEY_LOCAL_MACHINE, DriverKey(Slot)) && Ok;
    Ok = DeleteTree(HKEY_CLASSES_ROOT, ClassKey(Slot)) && Ok;
  }
  return Ok ? S_OK : SELFREG_E_CLASS;
} catch (...) {
  return E_OUTOFMEMORY;
}
