// Loading code libraries on behalf of a component.
#pragma once

#include <string>

#include "frame/Wbcomponent.h"
#include "platform/Library.h"

namespace Quorvel {

using TModuleHandle = Platform::TModuleHandle;

// [main thread] Loads FileName. On failure fires OnError (when set) with
// "Can't load library <file>: <reason>" and the system's error code, and
// answers nullptr; it never raises.
TModuleHandle KBLoadLibrary(TWBComponent* Sender, const std::string& FileName, const TWBErrorEvent& OnError);
// Unloads a library from KBLoadLibrary; nullptr is ignored.
void KBFreeLibrary(TModuleHandle Module);
void* KBGetProcAddress(TModuleHandle Module, const char* Name);

}  // namespace Quorvel
