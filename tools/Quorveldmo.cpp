// `quorvel dmo`: the audio-effect DMOs and a WAV file through one of them,
// with TSRDMOEffect.
//   quorvel dmo list
//   quorvel dmo process NAME -i IN.wav -o OUT.wav [--type N | --auto] [-x INDEX=VALUE]... [-q]
#include <algorithm>
#include <cstdio>
#include <string>
#include <vector>

#include "media/Srdmoeffect.h"
#include "tools/Quorvelcli.h"
#include "tools/Quorvelmedia.h"

// clang-format off
#include <windows.h>
#include <objbase.h>
// clang-format on

namespace Quorvel::Cli {
namespace {

// COM for the program's main thread while the command runs; DMOs registered
// for the apartment model are made here too.
class TComApartment {
 public:
  TComApartment() : FOwn(SUCCEEDED(CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED))) {}
  ~TComApartment() {
    if (FOwn) CoUninitialize();
  }

 private:
  bool FOwn;
};

int List(const TArgs& Args) {
  TArgs None;
  if (const int Rc = ParseOptions(Args, {}, None, 0)) return Rc;
  const std::vector<std::string> Names = TSRDMOEffect::GetDmoNames();
  if (Names.empty()) {
    std::printf("no audio-effect DMOs are registered\n");
    return 0;
  }
  for (const std::string& Name : Names) {
    std::printf("%s\n", Name.c_str());
    TSRDMOEffect Effect;
    Effect.SetDmoName(Name);
    for (TSRDMOMediaType* Side : {&Effect.GetInputMediaType(), &Effect.GetOutputMediaType()}) {
      const char* Label = Side == &Effect.GetInputMediaType() ? "  input types: " : "  output types:";
      const std::vector<std::string> Types = Side->GetMediaTypes();
      if (Types.empty()) std::printf("%s (none listed)\n", Label);
      for (size_t I = 0; I < Types.size(); ++I) std::printf("%s %s\n", I ? "               " : Label, Types[I].c_str());
    }
  }
  return 0;
}

// -x INDEX=VALUE: a parameter of the DMO, set before the stream starts.
bool ParseParameter(const std::string& Text, TCBDMOParameters& Parameters) {
  const size_t Eq = Text.find('=');
  long Index = 0;
  double Value = 0;
  if (Eq == std::string::npos || !ParseInt(Text.substr(0, Eq), Index) || Index < 0 ||
      !ParseDouble(Text.substr(Eq + 1), Value))
    return false;
  Parameters.SetValue(static_cast<uint32_t>(Index), static_cast<float>(Value));
  return true;
}

std::string TypeText(const TSRDMOMediaType& Type) {
  if (!Type.GetFormatKnown()) return "?";
  return std::to_string(Type.GetSampleRate()) + " Hz, " + std::to_string(Type.GetChannels()) + " ch, " +
         std::to_string(Type.GetBits()) + " bits";
}

int ProcessFile(const TArgs& Args) {
  std::string Input, Output;
  long TypeIndex = -1;
  bool Auto = false, Quiet = false;
  TReports Reports;     // outlives the effect that reports to it
  std::string Warning;  // "Can't start DMO <name>" is this command's failure, said once
  TSRDMOEffect Effect;
  TArgs Names;
  if (const int Rc = ParseOptions(
          Args,
          {{"-i", true, [&](const std::string& V) { return !(Input = V).empty(); }, "the input file"},
           {"-o", true, [&](const std::string& V) { return !(Output = V).empty(); }, "the output file"},
           {"--type", true, [&](const std::string& V) { return ParseInt(V, TypeIndex) && TypeIndex >= 0 && TypeIndex <= 4095; },
            "a type number, 0 to 4095"},
           {"--auto", false, [&](const std::string&) { return Auto = true; }, ""},
           {"-x", true, [&](const std::string& V) { return ParseParameter(V, Effect.GetParameters()); },
            "INDEX=VALUE"},
           {"-q", false, [&](const std::string&) { return Quiet = true; }, ""}},
          Names, 1))
    return Rc;
  if (Names.size() != 1 || Input.empty() || Output.empty()) return Usage();
  if (Auto && TypeIndex >= 0) {
    Fail("--type and --auto exclude each other");
    return Usage();
  }
  const std::string& Name = Names[0];
  if (const std::string Problem = CheckExistingFile("input file", Input); !Problem.empty()) return Fail(Problem);
  const std::vector<std::string> Known = TSRDMOEffect::GetDmoNames();
  if (std::find(Known.begin(), Known.end(), Name) == Known.end())
    return Fail("no audio-effect DMO is called \"" + Name + "\" (quorvel dmo list shows them)");

  TWaveStreamSource Source;
  if (const std::string Why = Source.Open(Input); !Why.empty()) return Fail(Why);
  const Platform::TAudioFileInfo Info = Source.GetInfo();
  Effect.SetDmoName(Name);
  if (TypeIndex >= 0) {
    // Deliberately the DMO's own type index, as the component's format dialog
    // hands its choice on: kept so that both name the same type.
    for (TSRDMOMediaType* Side : {&Effect.GetInputMediaType(), &Effect.GetOutputMediaType()}) {
      if (!Side->SetTypeIndex(static_cast<int32_t>(TypeIndex)))
        return Fail(Name + " has no " + (Side == &Effect.GetInputMediaType() ? "input" : "output") + " type " +
                    std::to_string(TypeIndex));
      Side->SetAutoSelect(false);
    }
  }

  TOutputFile File;
  if (!File.Prepare(Output, {{"the input file", Input}})) return 1;
  Reports.Attach(Effect);
  Effect.OnWarning = [&](TWBComponent*, const std::string& Text, int32_t) {
    if (Warning.empty()) Warning = Text;
  };
  TWaveSink Sink(File.GetWorkName());
  if (!Source.GetOutputPin().Connect(Effect.GetInputPin()) || !Effect.GetOutputPin()->Connect(Sink.GetInputPin()))
    return Fail("cannot connect the chain");
  TProgressBar Bar(!Quiet);
  std::string ReadError;
  bool Started = false;
  const uint64_t Frames = Source.Run(
      4096, [&] { return Started = Effect.IsProcessing(); },
      [&](uint64_t Done, uint64_t Total) { Bar.Show(Done, Total); }, ReadError);
  Bar.Finish();
  const std::string SinkError = Sink.Close();
  if (!Reports.Empty()) return Fail(Reports.First());
  if (!Started)
    return Fail((Warning.empty() ? "Can't start DMO " + Name : Warning) +
                ": it needs one input and one output stream, and to take " +
                (TypeIndex >= 0 ? "its type " + std::to_string(TypeIndex) + " on both" : "a wave type for " + PcmText(Info)));
  if (!ReadError.empty()) return Fail(Input + ": " + ReadError);
  if (!SinkError.empty()) return Fail(SinkError);

  std::printf("%s: %s in (type %s), out type %s\n", Name.c_str(), PcmText(Info).c_str(),
              TypeText(Effect.GetInputMediaType()).c_str(), TypeText(Effect.GetOutputMediaType()).c_str());
  std::printf("processed %llu frames (%.2f s) into %llu frames, peak %.1f dBFS\n",
              static_cast<unsigned long long>(Frames), Info.SampleRate ? double(Frames) / Info.SampleRate : 0.0,
              static_cast<unsigned long long>(Sink.GetFrames()), Sink.GetPeakDecibels());
  if (!File.Commit()) return 1;
  std::printf("written: %s\n", Output.c_str());
  return 0;
}

}  // namespace

int Dmo(const TArgs& Args) {
  if (Args.empty()) return Usage();
  TComApartment Com;
  const TArgs Rest(Args.begin() + 1, Args.end());
  if (Args[0] == "list") return List(Rest);
  if (Args[0] == "process") return ProcessFile(Rest);
  return Usage();
}

}  // namespace Quorvel::Cli
