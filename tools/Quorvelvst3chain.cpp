#include "tools/Quorvelvst3chain.h"

#include <algorithm>
#include <cctype>

#include "platform/Files.h"

namespace Quorvel::Cli {

using namespace Vst3hostintf;

bool IsVst3Path(std::string Path) {
  while (Path.size() > 1 && (Path.back() == '/' || Path.back() == '\\')) Path.pop_back();
  if (Path.size() < 5) return false;
  std::string Tail = Path.substr(Path.size() - 5);
  std::transform(Tail.begin(), Tail.end(), Tail.begin(), [](unsigned char C) { return char(std::tolower(C)); });
  return Tail == ".vst3";
}

std::string TVst3Stage::Describe() const {
  return Name + " (" + std::to_string(Inputs) + " in / " + std::to_string(Outputs) + " out)";
}

bool OpenVst3Stage(TVst3Stage& Stage, TReports& Reports, const std::string& File, double Rate, size_t Block,
                   TSRVST3SampleSize Size) {
  TSRVST3Host& Host = Stage.Host;
  Reports.Attach(Stage.Joiner);
  Reports.Attach(Host);
  Reports.Attach(Stage.Splitter);
  const auto Kind = Platform::GetPathKind(File);
  if (Kind == Platform::TPathKind::pkMissing) {
    Fail("plug-in " + File + " does not exist");
    return false;
  }
  Host.SetSampleRate(Rate);
  Host.SetBufferSize(Block);
  Host.SetSampleSize(Size);
  Host.SetFileName(File);
  // The module's first class may be its controller: take its first effect.
  for (int I = 0, N = Host.GetClassInfos().GetCount(); I < N; ++I) {
    const TSRVST3ClassInfoRef C = Host.GetClassInfos().GetItem(I);
    if (C && C->GetCategory() == kVstAudioEffectClass) {
      Host.GetProcessor().SetID(C->GetID());
      break;
    }
  }
  if (!Host.Open()) {
    Fail(Reports.Empty() ? File + " is not a VST 3 module with an audio effect" : Reports.Last());
    return false;
  }
  Stage.Name = Host.GetProcessor().GetName();
  TSRVST3BusInfo Bus;
  Stage.Inputs = Host.GetBusInfo(kAudio, kInput, 0, Bus) ? size_t(std::max(Bus.ChannelCount, 0)) : 0;
  Stage.Outputs = Host.GetBusInfo(kAudio, kOutput, 0, Bus) ? size_t(std::max(Bus.ChannelCount, 0)) : 0;
  if (Stage.Outputs == 0) {
    Fail(File + " has no audio outputs");
    return false;
  }
  // An instrument has no input bus: one input pin (never read) clocks its blocks.
  if (Host.GetInputPins().Count() == 0) Host.GetInputPins().SetCount(1);
  Stage.Joiner.SetChannels(std::max<size_t>(Stage.Inputs, 1));
  Stage.Splitter.SetChannels(Stage.Outputs);
  Stage.Joiner.SetBufferSize(Block);
  Stage.Splitter.SetBufferSize(Block);
  Stage.Joiner.GetOutputPin(0)->Connect(*Host.GetInputPin(0));
  Host.GetOutputPin(0)->Connect(*Stage.Splitter.GetInputPin(0));
  return true;
}

}  // namespace Quorvel::Cli
