// Writes the seed corpus of fuzz_vst3preset into the folder it is given:
// preset files saved by the host from the test module's classes (with a
// separate controller, one object for both, no controller), with and
// without XML, as the host's tests save them.
#include <cstdio>
#include <string>

#include "testplugins/vst3/Qvtestvst3.h"
#include "vst3/Srvst3host.h"

using namespace Quorvel;

int main(int Argc, char** Argv) {
  if (Argc != 2) {
    std::fprintf(stderr, "usage: vst3preset_seeds FOLDER\n");
    return 2;
  }
  const std::string Folder = Argv[1];
  struct TSeed {
    TGUID Class;
    const char* Name;
  };
  const TSeed Seeds[] = {{Qvtestvst3::kEffectCID, "effect"},
                         {Qvtestvst3::kSingleCID, "single"},
                         {Qvtestvst3::kAloneCID, "alone"}};
  int Failed = 0;
  for (const TSeed& S : Seeds) {
    TSRVST3Host Host;
    Host.OnError = [&](TWBComponent*, const std::string& Message, int32_t, bool& Handled) {
      std::fprintf(stderr, "vst3preset_seeds: %s\n", Message.c_str());
      Handled = true;
      Failed = 1;
    };
    Host.SetFileName(QV_TESTVST3_MAIN);
    Host.GetProcessor().SetID(S.Class);
    Host.SavePreset(Folder + "/" + S.Name + ".vstpreset");
    Host.SavePreset(Folder + "/" + S.Name + "-info.vstpreset", "<MetaInfo><Attr id=\"MediaType\" value=\"VstPreset\"/></MetaInfo>");
  }
  return Failed;
}
