#include "platform/Win32text_win32.h"

namespace Quorvel::Platform {

bool ToUtf16(const std::string& Text, std::wstring& Wide) {
  Wide.clear();
  if (Text.empty()) return true;
  const int Length = MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, Text.data(), int(Text.size()), nullptr, 0);
  if (Length <= 0) return false;
  Wide.resize(size_t(Length));
  return MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, Text.data(), int(Text.size()), Wide.data(), Length) ==
         Length;
}

std::string FromUtf16(const wchar_t* Text, size_t Length) {
  std::string Result;
  if (!Text || Length == 0 || Length > size_t(INT32_MAX)) return Result;
  const int Bytes = WideCharToMultiByte(CP_UTF8, 0, Text, int(Length), nullptr, 0, nullptr, nullptr);
  if (Bytes <= 0) return Result;
  Result.resize(size_t(Bytes));
  WideCharToMultiByte(CP_UTF8, 0, Text, int(Length), Result.data(), Bytes, nullptr, nullptr);
  return Result;
}

std::string FromUtf16(const wchar_t* Text) { return Text ? FromUtf16(Text, wcslen(Text)) : std::string(); }

std::string SystemMessage(DWORD Code, const std::string& FileName) {
  wchar_t* Buffer = nullptr;
  const DWORD Length =
      FormatMessageW(FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS,
                     nullptr, Code, 0, reinterpret_cast<wchar_t*>(&Buffer), 0, nullptr);
  std::string Text;
  if (Length > 0 && Buffer) Text = FromUtf16(Buffer, Length);
  if (Buffer) LocalFree(Buffer);
  while (!Text.empty() && (Text.back() == '\n' || Text.back() == '\r' || Text.back() == ' ')) Text.pop_back();
  for (size_t At = 0; (At = Text.find("%1", At)) != std::string::npos; At += FileName.size())
    Text.replace(At, 2, FileName);
  return Text.empty() ? "Windows error " + std::to_string(Code) : Text;
}

}  // namespace Quorvel::Platform
