// Dynamic library loading and the file test that goes with it.
#pragma once

#include <string>

namespace Quorvel::Platform {

using TModuleHandle = void*;

// [any thread] Loads a code library. Answers nullptr on failure and puts the
// system's reason (text and numeric code) into ErrorText/ErrorCode.
TModuleHandle LoadCodeLibrary(const std::string& FileName, std::string& ErrorText, unsigned& ErrorCode);
// [any thread] Address of an exported symbol, or nullptr.
void* GetLibrarySymbol(TModuleHandle Module, const char* Name);
// [any thread] Unloads a library loaded by LoadCodeLibrary; nullptr is ignored.
void FreeCodeLibrary(TModuleHandle Module);
// [any thread] Whether a regular file of that name exists.
bool FileExists(const std::string& FileName);
// [any thread] The folder of the running program, with a trailing separator
// ("" when the system cannot tell).
std::string GetExecutableDirectory();

}  // namespace Quorvel::Platform
