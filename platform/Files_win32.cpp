// Files through the Windows W functions (UTF-8 names converted to UTF-16).
#include "platform/Files.h"

#include <windows.h>

#include <atomic>
#include <cstring>

#include "platform/Win32text_win32.h"

namespace Quorvel::Platform {
namespace {

bool Wide(const std::string& Text, std::wstring& Path) { return !Text.empty() && ToUtf16(Text, Path); }

// The identity of an existing file: its volume and its index on the volume.
bool FileIdentity(const std::string& Name, BY_HANDLE_FILE_INFORMATION& Info) {
  std::wstring Path;
  if (!Wide(Name, Path)) return false;
  HANDLE Handle = CreateFileW(Path.c_str(), 0, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                              OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr);
  if (Handle == INVALID_HANDLE_VALUE) return false;
  const bool Ok = GetFileInformationByHandle(Handle, &Info) != 0;
  CloseHandle(Handle);
  return Ok;
}

}  // namespace

TPathKind GetPathKind(const std::string& Path) {
  std::wstring W;
  if (!Wide(Path, W)) return TPathKind::pkMissing;
  const DWORD Attributes = GetFileAttributesW(W.c_str());
  if (Attributes == INVALID_FILE_ATTRIBUTES) return TPathKind::pkMissing;
  if (Attributes & FILE_ATTRIBUTE_DIRECTORY) return TPathKind::pkDirectory;
  if (Attributes & FILE_ATTRIBUTE_DEVICE) return TPathKind::pkOther;
  return TPathKind::pkFile;
}

bool IsSameFile(const std::string& A, const std::string& B) {
  BY_HANDLE_FILE_INFORMATION IA{}, IB{};
  if (!FileIdentity(A, IA) || !FileIdentity(B, IB)) return false;
  return IA.dwVolumeSerialNumber == IB.dwVolumeSerialNumber && IA.nFileIndexHigh == IB.nFileIndexHigh &&
         IA.nFileIndexLow == IB.nFileIndexLow;
}

std::string ResolveWriteTarget(const std::string& Path) { return Path; }

std::string CreateTemporaryFileBeside(const std::string& Target, std::string& ErrorText) {
  const size_t Slash = Target.find_last_of("\\/");
  const std::string Folder = Slash == std::string::npos ? std::string() : Target.substr(0, Slash + 1);
  const std::string Base = Slash == std::string::npos ? Target : Target.substr(Slash + 1);
  DWORD Last = 0;
  for (unsigned Attempt = 0; Attempt < 100; ++Attempt) {
    const std::string Name = Folder + "." + Base + "." + std::to_string(GetCurrentProcessId()) + "-" +
                             std::to_string(GetTickCount() + Attempt) + ".tmp";
    std::wstring W;
    if (!Wide(Name, W)) {
      ErrorText = "file name is not valid UTF-8";
      return std::string();
    }
    HANDLE Handle = CreateFileW(W.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_NEW, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (Handle != INVALID_HANDLE_VALUE) {
      CloseHandle(Handle);
      ErrorText.clear();
      return Name;
    }
    Last = GetLastError();
    if (Last != ERROR_FILE_EXISTS && Last != ERROR_ALREADY_EXISTS) break;
  }
  ErrorText = "cannot create a file beside " + Target + ": " + SystemMessage(Last, Target);
  return std::string();
}

bool PutFileInPlace(const std::string& Source, const std::string& Target, std::string& ErrorText) {
  std::wstring S, T;
  if (!Wide(Source, S) || !Wide(Target, T)) {
    ErrorText = "file name is not valid UTF-8";
    return false;
  }
  if (MoveFileExW(S.c_str(), T.c_str(), MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH)) return true;
  ErrorText = "cannot replace " + Target + ": " + SystemMessage(GetLastError(), Target);
  return false;
}

bool RemoveFile(const std::string& Path) {
  std::wstring W;
  return Wide(Path, W) && DeleteFileW(W.c_str());
}

namespace {

std::wstring GInterruptPath;
std::atomic<bool> GInterruptArmed{false};
bool GHandlerInstalled = false;

// Runs on a thread of its own when the console asks the program to end.
BOOL WINAPI OnConsoleControl(DWORD) {
  if (GInterruptArmed.exchange(false)) DeleteFileW(GInterruptPath.c_str());
  return FALSE;  // the default handler ends the program
}

}  // namespace

void RemoveOnInterrupt(const std::string& Path) {
  std::wstring W;
  if (!Wide(Path, W)) return;
  GInterruptArmed = false;
  GInterruptPath = W;
  if (!GHandlerInstalled) GHandlerInstalled = SetConsoleCtrlHandler(OnConsoleControl, TRUE) != 0;
  GInterruptArmed = true;
}

void ForgetOnInterrupt() { GInterruptArmed = false; }

}  // namespace Quorvel::Platform
