// Files through CreateFileW and the handle functions; share modes enforced.
#include "platform/Filestream.h"

#include <windows.h>

#include <algorithm>

#include "platform/Win32text_win32.h"

namespace Quorvel::Platform {
namespace {

class TWin32File final : public TFileHandle {
 public:
  TWin32File(HANDLE Handle, std::string Name) : FHandle(Handle), FName(std::move(Name)) {}
  ~TWin32File() override { CloseHandle(FHandle); }

  int64_t Read(void* Data, int64_t Count) override {
    if (Count < 0 || (!Data && Count > 0)) return Fail(ERROR_INVALID_PARAMETER);
    int64_t Done = 0;
    while (Done < Count) {
      DWORD Got = 0;
      const DWORD Want = DWORD(std::min<int64_t>(Count - Done, 1 << 30));
      if (!ReadFile(FHandle, static_cast<char*>(Data) + Done, Want, &Got, nullptr)) return Done ? Done : Fail(GetLastError());
      if (Got == 0) break;
      Done += Got;
    }
    return Done;
  }
  int64_t Write(const void* Data, int64_t Count) override {
    if (Count < 0 || (!Data && Count > 0)) return Fail(ERROR_INVALID_PARAMETER);
    int64_t Done = 0;
    while (Done < Count) {
      DWORD Put = 0;
      const DWORD Want = DWORD(std::min<int64_t>(Count - Done, 1 << 30));
      if (!WriteFile(FHandle, static_cast<const char*>(Data) + Done, Want, &Put, nullptr) || Put == 0)
        return Done ? Done : Fail(GetLastError());
      Done += Put;
    }
    return Done;
  }
  int64_t Seek(int64_t Offset, int Origin) override {
    LARGE_INTEGER Move, At;
    Move.QuadPart = Offset;
    const DWORD Method = Origin == 0 ? FILE_BEGIN : Origin == 1 ? FILE_CURRENT : FILE_END;
    return SetFilePointerEx(FHandle, Move, &At, Method) ? int64_t(At.QuadPart) : Fail(GetLastError());
  }
  int64_t Size() override {
    LARGE_INTEGER S;
    return GetFileSizeEx(FHandle, &S) ? int64_t(S.QuadPart) : Fail(GetLastError());
  }
  bool Resize(int64_t Size) override {
    if (Size < 0) return Fail(ERROR_INVALID_PARAMETER) >= 0;
    const int64_t Here = Seek(0, 1);
    if (Here < 0 || Seek(Size, 0) < 0) return false;
    const bool Ok = SetEndOfFile(FHandle) != 0;
    const DWORD Error = GetLastError();
    Seek(Here, 0);
    return Ok || Fail(Error) >= 0;
  }
  bool Flush() override { return FlushFileBuffers(FHandle) || Fail(GetLastError()) >= 0; }
  std::string GetLastErrorText() const override { return FError; }

 private:
  int64_t Fail(DWORD Code) {
    FError = SystemMessage(Code, FName);
    return -1;
  }
  HANDLE FHandle;
  std::string FName;
  std::string FError;
};

}  // namespace

std::unique_ptr<TFileHandle> OpenFileHandle(const std::string& FileName, TFileOpenMode Mode, TFileShareMode Share,
                                            std::string& ErrorText) {
  std::wstring Path;
  if (FileName.empty() || !ToUtf16(FileName, Path)) {
    ErrorText = FileName.empty() ? "empty file name" : "file name is not valid UTF-8";
    return nullptr;
  }
  const DWORD Access = Mode == TFileOpenMode::fomRead ? GENERIC_READ : GENERIC_READ | GENERIC_WRITE;
  const DWORD ShareFlags = Share == TFileShareMode::fsmShareAll    ? FILE_SHARE_READ | FILE_SHARE_WRITE
                           : Share == TFileShareMode::fsmDenyWrite ? FILE_SHARE_READ
                                                                   : 0;
  const DWORD Creation = Mode == TFileOpenMode::fomCreate ? CREATE_ALWAYS : OPEN_EXISTING;
  HANDLE Handle = CreateFileW(Path.c_str(), Access, ShareFlags, nullptr, Creation, FILE_ATTRIBUTE_NORMAL, nullptr);
  if (Handle == INVALID_HANDLE_VALUE) {
    ErrorText = SystemMessage(GetLastError(), FileName);
    return nullptr;
  }
  ErrorText.clear();
  return std::make_unique<TWin32File>(Handle, FileName);
}

}  // namespace Quorvel::Platform
