// The VST 2 libraries that Debian's plug-in packages installed here.
#pragma once

#include <cstdio>
#include <memory>
#include <string>
#include <vector>

namespace Quorvel::Testing {

// The packages scripts/setup.sh installs.
inline const std::vector<std::string>& DebianPlugInPackages() {
  static const std::vector<std::string> Packages{"dpf-plugins-vst", "dragonfly-reverb-vst", "lsp-plugins-vst"};
  return Packages;
}

// The shared libraries Package installed; none when it is not installed.
inline std::vector<std::string> InstalledLibraries(const std::string& Package) {
  std::vector<std::string> Files;
  std::unique_ptr<FILE, int (*)(FILE*)> Pipe(popen(("dpkg-query -L " + Package + " 2>/dev/null").c_str(), "r"), pclose);
  if (!Pipe) return Files;
  char Line[4096];
  while (std::fgets(Line, sizeof(Line), Pipe.get())) {
    std::string F(Line);
    while (!F.empty() && (F.back() == '\n' || F.back() == '\r')) F.pop_back();
    if (F.size() > 3 && F.compare(F.size() - 3, 3, ".so") == 0) Files.push_back(F);
  }
  return Files;
}

}  // namespace Quorvel::Testing
