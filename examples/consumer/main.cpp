// A user's program: starts the package, lists its components, builds a chain
// from a document (a tone through a gain into a WAV file), runs it, and saves
// the chain's document again.
#include <cstdio>
#include <string>
#include <vector>

#include "frame/Srdemocomponents.h"
#include "frame/Wbdocument.h"
#include "frame/Wbregistration.h"
#include "package/Quorvelpackage.h"

using namespace Quorvel;

int main(int Argc, char** Argv) {
  const std::string Output = Argc > 1 ? Argv[1] : "consumer.wav";
  Package::Initialize();
  for (const TWBClassInfo* C : Design::Components::GetRegisteredComponents())
    std::printf("component: %s\n", C->ClassName.c_str());

  const std::string Text = R"({
    "components": [
      {"class": "TSRToneGenerator", "name": "Tone", "properties": {"Frequency": 1000.0, "Amplitude": 0.5}},
      {"class": "TSRGainFilter", "name": "Gain", "properties": {"Gain": 0.5}},
      {"class": "TSRWaveFileWriter", "name": "File", "properties": {"FileName": ")" + Output + R"("}}],
    "connections": [{"from": "Tone.Output", "to": "Gain.Input"}, {"from": "Gain.Output", "to": "File.Input"}]})";
  TWBDocument Document;
  std::string Error;
  TWBComponent Form;
  std::vector<TWBComponent*> Chain;
  if (!ParseDocument(Text, Document, Error) || !LoadDocument(Document, Form, Chain, Error)) {
    std::fprintf(stderr, "consumer: %s\n", Error.c_str());
    return 1;
  }
  auto* Tone = static_cast<TSRToneGenerator*>(Chain[0]);
  auto* File = static_cast<TSRWaveFileWriter*>(Chain[2]);
  Tone->Start();
  Tone->Generate(100);
  Tone->Stop();
  std::printf("wrote %llu frames to %s, peak %d\n", static_cast<unsigned long long>(File->GetFramesWritten()),
              Output.c_str(), File->GetPeak());
  std::printf("%s", WriteDocument(SaveDocument(Chain)).c_str());
  Package::Finalize();
  return File->GetFramesWritten() == 100 * 256 ? 0 : 1;
}
