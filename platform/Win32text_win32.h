// Text helpers shared by the Windows seams (not part of the portable interface).
#pragma once

#include <windows.h>

#include <string>

namespace Quorvel::Platform {

// UTF-8 to UTF-16 for the W functions; false on malformed UTF-8.
bool ToUtf16(const std::string& Text, std::wstring& Wide);
// UTF-16 to UTF-8; unpaired surrogates become U+FFFD.
std::string FromUtf16(const wchar_t* Text, size_t Length);
// The same for a text ending in a 0 character; a null pointer gives "".
std::string FromUtf16(const wchar_t* Text);
// The system's text for an error code, with the file name put where the text wants it.
std::string SystemMessage(DWORD Code, const std::string& FileName);

}  // namespace Quorvel::Platform
