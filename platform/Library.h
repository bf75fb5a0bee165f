// Dynamic library loading and the file test that goes with it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace Quorvel::Platform {

using TModuleHandle = void*;

// [any thread] Loads a code library. Answers nullptr on failure and puts the
// system's reason (text and numeric code) into ErrorText/ErrorCode.
TModuleHandle LoadCodeLibrary(const std::string& FileName, std::string& ErrorText, unsigned& ErrorCode);
// [any thread] Address of an exported symbol, or nullptr.
void* GetLibrarySymbol(TModuleHandle Module, const char* Name);
// [any thread] Unloads a library loaded by LoadCodeLibrary; nullptr is ignored.
void FreeCodeLibrary(TModuleHandle Module);
// [any thread] Copies the resource of the given type name and numeric
// identifier out of a loaded library into Data. False when the library has
// none, or one larger than MaxSize. Only Windows libraries carry resources:
// elsewhere the answer is always false.
bool ReadLibraryResource(TModuleHandle Module, const std::string& Type, unsigned Id, size_t MaxSize,
                         std::vector<uint8_t>& Data);
// [any thread] Whether a regular file of that name exists.
bool FileExists(const std::string& FileName);
// [any thread] The folder of the running program, with a trailing separator
// ("" when the system cannot tell).
std::string GetExecutableDirectory();

}  // namespace Quorvel::Platform
