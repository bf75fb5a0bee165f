// Where VST 3 modules differ between systems: the byte order of their
// identifiers, the result values they answer, where the library sits in a
// bundle, and the entry points that bracket a module's use. The host's code
// is the same everywhere; only this seam differs.
//
// The byte order is a build setting (QUORVEL_VST3_COM_BYTE_ORDER, 1 for
// Windows, 0 elsewhere), so that modules built by the project and the host
// read the same identifiers as compile-time constants.
#pragma once

#include <cstdint>
#include <string>

#include "platform/Library.h"

namespace Quorvel::Platform {

// Windows modules lay out identifiers as COM does (first three fields
// little-endian); others keep the 16 bytes in the order they are written.
constexpr bool kVst3ComByteOrder = QUORVEL_VST3_COM_BYTE_ORDER != 0;

// The Windows values of the published results; the host works with these.
constexpr int32_t kVst3ResultOk = 0;
constexpr int32_t kVst3ResultFalse = 1;
constexpr int32_t kVst3NoInterface = static_cast<int32_t>(0x80004002u);
constexpr int32_t kVst3InvalidArgument = static_cast<int32_t>(0x80070057u);
constexpr int32_t kVst3NotImplemented = static_cast<int32_t>(0x80004001u);
constexpr int32_t kVst3InternalError = static_cast<int32_t>(0x80004005u);
constexpr int32_t kVst3NotInitialized = static_cast<int32_t>(0x8000FFFFu);
constexpr int32_t kVst3OutOfMemory = static_cast<int32_t>(0x8007000Eu);

namespace Detail {
// The values other systems' modules answer for the failures above, in that order.
constexpr int32_t kVst3Windows[6] = {kVst3NoInterface,    kVst3InvalidArgument, kVst3NotImplemented,
                                     kVst3InternalError,  kVst3NotInitialized,  kVst3OutOfMemory};
constexpr int32_t kVst3Native[6] = {-1, 2, 3, 4, 5, 6};
}  // namespace Detail

// [any thread] A module's answer as the Windows value the host compares with.
constexpr int32_t Vst3ResultFromModule(int32_t Result) {
  if (kVst3ComByteOrder) return Result;
  for (int I = 0; I < 6; ++I)
    if (Result == Detail::kVst3Native[I]) return Detail::kVst3Windows[I];
  return Result;
}
// [any thread] A Windows result value as this system's modules expect it.
constexpr int32_t Vst3ResultToModule(int32_t Result) {
  if (kVst3ComByteOrder) return Result;
  for (int I = 0; I < 6; ++I)
    if (Result == Detail::kVst3Windows[I]) return Detail::kVst3Native[I];
  return Result;
}

// [any thread] The library to load for Path: a bundle folder's binary for
// this system ("X.vst3/Contents/x86_64-win/X.vst3" on Windows,
// "X.vst3/Contents/x86_64-linux/X.so" elsewhere); any other name as it is.
std::string Vst3ModuleLibrary(const std::string& Path);
// The entry and exit functions of a module on this system ("InitDll" and
// "ExitDll" on Windows, "ModuleEntry" and "ModuleExit" elsewhere).
extern const char* const kVst3EntryName;
extern const char* const kVst3ExitName;
// [main thread] Calls an entry function found under kVst3EntryName; Module
// is the loaded library, which some systems hand to it. Answers its result.
bool CallVst3Entry(void* Entry, TModuleHandle Module);
// [main thread] Calls an exit function found under kVst3ExitName.
void CallVst3Exit(void* Exit);

}  // namespace Quorvel::Platform
