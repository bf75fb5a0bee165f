// Code libraries through the Windows loader.
#include "platform/Library.h"

#include <windows.h>

namespace Quorvel::Platform {
namespace {

// UTF-8 to UTF-16 for the W functions; false on malformed UTF-8.
bool ToUtf16(const std::string& Text, std::wstring& Wide) {
  Wide.clear();
  if (Text.empty()) return true;
  const int Length = MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, Text.data(), int(Text.size()), nullptr, 0);
  if (Length <= 0) return false;
  Wide.resize(size_t(Length));
  return MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, Text.data(), int(Text.size()), Wide.data(), Length) ==
         Length;
}

// The system's text for an error code, with the file name put where the text wants it.
std::string SystemMessage(DWORD Code, const std::string& FileName) {
  wchar_t* Buffer = nullptr;
  const DWORD Length =
      FormatMessageW(FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS,
                     nullptr, Code, 0, reinterpret_cast<wchar_t*>(&Buffer), 0, nullptr);
  std::string Text;
  if (Length > 0 && Buffer) {
    const int Bytes = WideCharToMultiByte(CP_UTF8, 0, Buffer, int(Length), nullptr, 0, nullptr, nullptr);
    if (Bytes > 0) {
      Text.resize(size_t(Bytes));
      WideCharToMultiByte(CP_UTF8, 0, Buffer, int(Length), Text.data(), Bytes, nullptr, nullptr);
    }
  }
  if (Buffer) LocalFree(Buffer);
  while (!Text.empty() && (Text.back() == '\n' || Text.back() == '\r' || Text.back() == ' ')) Text.pop_back();
  for (size_t At = 0; (At = Text.find("%1", At)) != std::string::npos; At += FileName.size())
    Text.replace(At, 2, FileName);
  return Text.empty() ? "Windows error " + std::to_string(Code) : Text;
}

bool IsAbsolute(const std::wstring& Path) {
  return (Path.size() >= 3 && Path[1] == L':' && Path[2] == L'\\') || (Path.size() >= 2 && Path[0] == L'\\' && Path[1] == L'\\');
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
