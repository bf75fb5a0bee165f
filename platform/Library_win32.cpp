// Code libraries through the Windows loader.
#include "platform/Library.h"

#include <windows.h>

#include "platform/Win32text_win32.h"

namespace Quorvel::Platform {
namespace {

// A drive path (C:\...) or a network path (\\server\...).
bool IsAbsolute(const std::wstring& Path) {
  return (Path.size() >= 3 && Path[1] == L':' && Path[2] == L'\\') ||
         (Path.size() >= 2 && Path[0] == L'\\' && Path[1] == L'\\');
}

}  // namespace

TModuleHandle LoadCodeLibrary(const std::string& FileName, std::string& ErrorText, unsigned& ErrorCode) {
  std::wstring Path;
  if (FileName.empty() || !ToUtf16(FileName, Path)) {
    ErrorCode = FileName.empty() ? ERROR_INVALID_NAME : ERROR_NO_UNICODE_TRANSLATION;
    ErrorText = FileName.empty() ? "empty library file name" : "library file name is not valid UTF-8";
    return nullptr;
  }
  // The loader wants backslashes in paths.
  for (wchar_t& Character : Path)
    if (Character == L'/') Character = L'\\';
  // A bare name of a file in the current folder means that file, not a DLL
  // of that name found first along the system's search path.
  if (Path.find(L'\\') == std::wstring::npos && FileExists(FileName)) {
    std::wstring Full(32768, L'\0');
    const DWORD N = GetFullPathNameW(Path.c_str(), static_cast<DWORD>(Full.size()), &Full[0], nullptr);
    if (N > 0 && N < Full.size()) Path.assign(Full.c_str(), N);
  }
  // A DLL that cannot load must answer an error, not put a message box in front of the user.
  DWORD OldMode = 0;
  const bool ModeSet = SetThreadErrorMode(SEM_FAILCRITICALERRORS | SEM_NOOPENFILEERRORBOX, &OldMode);
  // Given a full path, the DLL's own folder is searched for the DLLs it depends on
  // (plug-ins ship theirs beside them).
  HMODULE Module = IsAbsolute(Path) ? LoadLibraryExW(Path.c_str(), nullptr, LOAD_WITH_ALTERED_SEARCH_PATH)
                                    : LoadLibraryW(Path.c_str());
  const DWORD Error = GetLastError();
  if (ModeSet) SetThreadErrorMode(OldMode, nullptr);
  if (Module) {
    ErrorText.clear();
    ErrorCode = 0;
    return Module;
  }
  ErrorCode = Error ? Error : ERROR_MOD_NOT_FOUND;
  ErrorText = SystemMessage(ErrorCode, FileName);
  return nullptr;
}

bool ReadLibraryResource(TModuleHandle Module, const std::string& Type, unsigned Id, size_t MaxSize,
                         std::vector<uint8_t>& Data) {
  Data.clear();
  std::wstring TypeName;
  if (!Module || Type.empty() || Id > 0xFFFF || !ToUtf16(Type, TypeName)) return false;
  const HMODULE Library = static_cast<HMODULE>(Module);
  HRSRC Found = FindResourceW(Library, MAKEINTRESOURCEW(Id), TypeName.c_str());
  if (!Found) return false;
  const DWORD Size = SizeofResource(Library, Found);
  HGLOBAL Loaded = Size > 0 && Size <= MaxSize ? LoadResource(Library, Found) : nullptr;
  const void* Bytes = Loaded ? LockResource(Loaded) : nullptr;
  if (!Bytes) return false;
  const auto* First = static_cast<const uint8_t*>(Bytes);
  Data.assign(First, First + Size);
  return true;
}

void* GetLibrarySymbol(TModuleHandle Module, const char* Name) {
  if (!Module || !Name) return nullptr;
  return reinterpret_cast<void*>(GetProcAddress(static_cast<HMODULE>(Module), Name));
}

void FreeCodeLibrary(TModuleHandle Module) {
  if (Module) FreeLibrary(static_cast<HMODULE>(Module));
}

bool FileExists(const std::string& FileName) {
  std::wstring Path;
  if (FileName.empty() || !ToUtf16(FileName, Path)) return false;
  const DWORD Attributes = GetFileAttributesW(Path.c_str());
  return Attributes != INVALID_FILE_ATTRIBUTES && !(Attributes & FILE_ATTRIBUTE_DIRECTORY);
}

}  // namespace Quorvel::Platform

namespace Quorvel::Platform {

std::string GetExecutableDirectory() {
  wchar_t Path[MAX_PATH * 4];
  const DWORD N = GetModuleFileNameW(nullptr, Path, static_cast<DWORD>(sizeof(Path) / sizeof(Path[0])));
  if (N == 0 || N >= sizeof(Path) / sizeof(Path[0])) return {};
  const std::string File = FromUtf16(Path, N);
  const size_t Slash = File.find_last_of("\\/");
  return Slash == std::string::npos ? std::string() : File.substr(0, Slash + 1);
}

}  // namespace Quorvel::Platform
