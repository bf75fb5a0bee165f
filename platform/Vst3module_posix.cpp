// VST 3 modules on Linux: bundles with the library under
// Contents/x86_64-linux, entered through ModuleEntry(handle)/ModuleExit().
#include "platform/Vst3module.h"

#include "platform/Files.h"

namespace Quorvel::Platform {

const char* const kVst3EntryName = "ModuleEntry";
const char* const kVst3ExitName = "ModuleExit";

std::string Vst3ModuleLibrary(const std::string& Path) {
  if (GetPathKind(Path) != TPathKind::pkDirectory) return Path;
  std::string Folder = Path;
  while (Folder.size() > 1 && Folder.back() == '/') Folder.pop_back();
  const size_t Slash = Folder.find_last_of('/');
  std::string Stem = Slash == std::string::npos ? Folder : Folder.substr(Slash + 1);
  const std::string Extension = ".vst3";
  if (Stem.size() > Extension.size() && Stem.compare(Stem.size() - Extension.size(), Extension.size(), Extension) == 0)
    Stem.resize(Stem.size() - Extension.size());
  return Folder + "/Contents/x86_64-linux/" + Stem + ".so";
}

bool CallVst3Entry(void* Entry, TModuleHandle Module) {
  return reinterpret_cast<bool (*)(void*)>(Entry)(Module);
}

void CallVst3Exit(void* Exit) { reinterpret_cast<bool (*)()>(Exit)(); }

}  // namespace Quorvel::Platform
