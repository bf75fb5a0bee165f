// VST 3 modules on Windows: a flat DLL named X.vst3 or a bundle folder with
// the DLL under Contents\x86_64-win, entered through InitDll()/ExitDll().
#include "platform/Vst3module.h"

#include "platform/Files.h"

namespace Quorvel::Platform {

const char* const kVst3EntryName = "InitDll";
const char* const kVst3ExitName = "ExitDll";

std::string Vst3ModuleLibrary(const std::string& Path) {
  if (GetPathKind(Path) != TPathKind::pkDirectory) return Path;
  std::string Folder = Path;
  while (Folder.size() > 3 && (Folder.back() == '\\' || Folder.back() == '/')) Folder.pop_back();
  const size_t Slash = Folder.find_last_of("\\/");
  std::string Stem = Slash == std::string::npos ? Folder : Folder.substr(Slash + 1);
  const std::string Extension = ".vst3";
  if (Stem.size() > Extension.size() && Stem.compare(Stem.size() - Extension.size(), Extension.size(), Extension) == 0)
    Stem.resize(Stem.size() - Extension.size());
  return Folder + "\\Contents\\x86_64-win\\" + Stem + ".vst3";
}

bool CallVst3Entry(void* Entry, TModuleHandle) { return reinterpret_cast<bool (*)()>(Entry)(); }

void CallVst3Exit(void* Exit) { reinterpret_cast<bool (*)()>(Exit)(); }

}  // namespace Quorvel::Platform
