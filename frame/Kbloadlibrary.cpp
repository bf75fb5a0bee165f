#include "frame/Kbloadlibrary.h"

namespace Quorvel {

TModuleHandle KBLoadLibrary(TWBComponent* Sender, const std::string& FileName, const TWBErrorEvent& OnError) {
  std::string Reason;
  unsigned Code = 0;
  TModuleHandle Module = Platform::LoadCodeLibrary(FileName, Reason, Code);
  if (!Module && OnError) {
    bool Handled = false;
    std::string Message = "Can't load library " + FileName;
    if (!Reason.empty()) Message += ": " + Reason;
    OnError(Sender, Message, static_cast<int32_t>(Code), Handled);
  }
  return Module;
}

void KBFreeLibrary(TModuleHandle Module) { Platform::FreeCodeLibrary(Module); }

void* KBGetProcAddress(TModuleHandle Module, const char* Name) {
  return Module ? Platform::GetLibrarySymbol(Module, Name) : nullptr;
}

}  // namespace Quorvel
