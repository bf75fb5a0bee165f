// Installed ASIO drivers through the registry and COM.
#include "platform/Asiodrivers.h"

#include <objbase.h>
#include <windows.h>

#include <cstring>

#include "platform/Win32text_win32.h"

namespace Quorvel::Asiodrivers {
namespace {

const wchar_t* const RootKeyPath = L"Software\\ASIO";

// Opens "Software\ASIO" or "Software\ASIO\<Name>" for reading.
HKEY OpenKey(const std::string* Name) {
  std::wstring Path = RootKeyPath;
  if (Name) {
    std::wstring Wide;
    // An empty name would open the root itself, which is no driver key.
    if (Name->empty() || !Platform::ToUtf16(*Name, Wide)) return nullptr;
    Path += L'\\';
    Path += Wide;
  }
  HKEY Key = nullptr;
  if (RegOpenKeyExW(HKEY_LOCAL_MACHINE, Path.c_str(), 0, KEY_READ, &Key) != ERROR_SUCCESS) return nullptr;
  return Key;
}

}  // namespace

bool EnumerateDriverKeys(std::vector<std::string>& Names) {
  HKEY Root = OpenKey(nullptr);
  if (!Root) return false;
  std::vector<std::string> Found;
  // Key names are at most 255 characters.
  wchar_t Buffer[256];
  for (DWORD Index = 0;; ++Index) {
    DWORD Length = sizeof(Buffer) / sizeof(Buffer[0]);
    const LONG Result = RegEnumKeyExW(Root, Index, Buffer, &Length, nullptr, nullptr, nullptr, nullptr);
    if (Result != ERROR_SUCCESS) break;  // ERROR_NO_MORE_ITEMS, or a key that vanished meanwhile
    Found.push_back(Platform::FromUtf16(Buffer, Length));
  }
  RegCloseKey(Root);
  Names.insert(Names.end(), Found.begin(), Found.end());
  return true;
}

bool DriverKeyExists(const std::string& Name) {
  HKEY Key = OpenKey(&Name);
  if (!Key) return false;
  RegCloseKey(Key);
  return true;
}

bool ReadDriverClsid(const std::string& Name, std::string& ClsidText) {
  HKEY Key = OpenKey(&Name);
  if (!Key) return false;
  DWORD Type = 0;
  DWORD Bytes = 0;
  bool Ok = RegQueryValueExW(Key, L"clsid", nullptr, &Type, nullptr, &Bytes) == ERROR_SUCCESS &&
            (Type == REG_SZ || Type == REG_EXPAND_SZ);
  std::wstring Value;
  if (Ok) {
    // The stored string need not end with a terminator: leave room for one.
    Value.assign(Bytes / sizeof(wchar_t) + 1, L'\0');
    Bytes = DWORD(Value.size() * sizeof(wchar_t));
    Ok = RegQueryValueExW(Key, L"clsid", nullptr, &Type, reinterpret_cast<BYTE*>(Value.data()), &Bytes) ==
         ERROR_SUCCESS;
  }
  RegCloseKey(Key);
  if (!Ok) return false;
  Value.resize(wcsnlen(Value.c_str(), Value.size()));
  ClsidText = Platform::FromUtf16(Value.c_str(), Value.size());
  return true;
}

bool ClsidFromText(const std::string& Text, TGUID& Clsid) {
  Clsid = TGUID{};
  std::wstring Wide;
  if (!Platform::ToUtf16(Text, Wide)) return false;
  CLSID Result;
  if (FAILED(CLSIDFromString(Wide.c_str(), &Result))) return false;
  static_assert(sizeof(CLSID) == sizeof(TGUID), "GUID layout");
  std::memcpy(&Clsid, &Result, sizeof(Clsid));
  return true;
}

void* CreateInprocInstance(const TGUID& Clsid, const TGUID& Iid) {
  CLSID Class;
  IID Interface;
  std::memcpy(&Class, &Clsid, sizeof(Class));
  std::memcpy(&Interface, &Iid, sizeof(Interface));
  void* Object = nullptr;
  if (FAILED(CoCreateInstance(Class, nullptr, CLSCTX_INPROC_SERVER, Interface, &Object))) return nullptr;
  return Object;
}

bool InitializeComForThisThread() {
  const HRESULT Result = CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED);
  // S_FALSE: already a single-threaded apartment; keep COM's count at one.
  if (Result == S_FALSE) CoUninitialize();
  return SUCCEEDED(Result);
}

}  // namespace Quorvel::Asiodrivers
