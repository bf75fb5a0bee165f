// quorvel preset save|load X.vst3 FILE: VST 3 preset files, through the VST 3
// host component. The module's first class is chosen unless -c names
// another; it is opened in full. save writes the class's component state,
// its controller's state and, with --info, an XML text as a preset file;
// load reads one back, which this host never manages (every file gives the
// host's load message and status 1).
#include <algorithm>
#include <cctype>
#include <cstdio>
#include <string>
#include <vector>

#include "frame/Wbstreams.h"
#include "platform/Files.h"
#include "tools/Quorvelcli.h"
#include "vst3/Srvst3host.h"

namespace Quorvel::Cli {
namespace {

bool NamesVst3Module(std::string Path) {
  while (Path.size() > 1 && (Path.back() == '/' || Path.back() == '\\')) Path.pop_back();
  if (Path.size() < 5) return false;
  std::string Tail = Path.substr(Path.size() - 5);
  std::transform(Tail.begin(), Tail.end(), Tail.begin(), [](unsigned char C) { return char(std::tolower(C)); });
  return Tail == ".vst3";
}

// The host's message on one line (some texts break theirs with "\r\n").
std::string OneLine(const std::string& Message) {
  std::string Out;
  for (const char C : Message) {
    if (C != '\r' && C != '\n') Out += C;
    else if (!Out.empty() && Out.back() != ' ') Out += ' ';
  }
  return Out;
}

// Opens the module's first class, or the class named (by name or by its
// registry-form identifier in any case); on failure prints why.
bool OpenModule(TSRVST3Host& Host, TReports& Reports, const std::string& File, const std::string& Class) {
  const auto Kind = Platform::GetPathKind(File);
  if (Kind != Platform::TPathKind::pkFile && Kind != Platform::TPathKind::pkDirectory) {
    Fail("module " + File + " does not exist");
    return false;
  }
  Host.SetFileName(File);
  if (!Class.empty() && Reports.Empty()) {
    TGUID Wanted = Vst3hostintf::kNullUID;
    for (int I = 0; I < Host.GetClassInfos().GetCount(); ++I) {
      const auto C = Host.GetClassInfos().GetItem(I);
      std::string ID = Vst3hostintf::VST3UIDToString(C ? C->GetID() : Vst3hostintf::kNullUID), Wished = Class;
      for (auto* S : {&ID, &Wished})
        std::transform(S->begin(), S->end(), S->begin(), [](unsigned char Ch) { return char(std::toupper(Ch)); });
      if (C && (C->GetName() == Class || ID == Wished)) {
        Wanted = C->GetID();
        break;
      }
    }
    if (Vst3hostintf::IsNullUID(Wanted)) {
      Fail(File + " has no class named " + Class + " (quorvel info " + File + " lists them)");
      return false;
    }
    Host.GetProcessor().SetID(Wanted);
  }
  const bool Opened = Reports.Empty() && Host.Open();
  if (!Reports.Empty()) {
    Fail(OneLine(Reports.First()));
    return false;
  }
  if (!Opened) {
    Fail(File + " did not open as a VST 3 module (quorvel info " + File + " tells more)");
    return false;
  }
  return true;
}

int Save(const TArgs& Args) {
  std::string Class, InfoFile;
  TArgs Files;
  if (const int Rc = ParseOptions(
          Args,
          {{"-c", true, [&](const std::string& V) { return !(Class = V).empty(); }, "a class name or identifier"},
           {"--info", true, [&](const std::string& V) { return !(InfoFile = V).empty(); }, "an XML file"}},
          Files, 2))
    return Rc;
  if (Files.size() != 2) return Usage();
  const std::string &Module = Files[0], &Output = Files[1];
  std::string MetaInfo;
  if (!InfoFile.empty()) {
    if (const std::string Why = CheckExistingFile("XML file", InfoFile); !Why.empty()) return Fail(Why);
    TWBFileStream In(InfoFile, Platform::TFileOpenMode::fomRead);
    const int64_t Size = In.IsOpen() ? In.GetSize() : -1;
    if (Size < 0 || Size > (int64_t(1) << 24)) return Fail("cannot read " + InfoFile + " (at most 16 MiB)");
    MetaInfo.resize(size_t(Size));
    if (!In.ReadExact(&MetaInfo[0], Size)) return Fail("cannot read " + InfoFile + ": " + In.GetLastErrorText());
  }
  std::vector<TOutputFile::TInput> Inputs = {{"the module", Module}};
  if (!InfoFile.empty()) Inputs.push_back({"the XML file", InfoFile});
  TOutputFile File;
  if (!File.Prepare(Output, Inputs)) return 1;
  TSRVST3Host Host;
  TReports Reports;
  Reports.Attach(Host);
  if (!OpenModule(Host, Reports, Module, Class)) return 1;

  TWBMemoryStream Saved;
  Host.SavePreset(Saved, MetaInfo);
  if (!Reports.Empty()) return Fail(OneLine(Reports.Last()));
  {
    TWBFileStream Out(File.GetWorkName(), Platform::TFileOpenMode::fomCreate);
    if (!Out.IsOpen()) return Fail("cannot write " + Output + ": " + Out.GetOpenError());
    if (!Out.WriteExact(Saved.GetData().data(), Saved.GetSize()) || !Out.Flush())
      return Fail("cannot write " + Output + ": " + Out.GetLastErrorText());
  }
  if (!File.Commit()) return 1;
  std::string Chunks = "Comp";
  if (Host.GetController()) Chunks += " Cont";
  if (!MetaInfo.empty()) Chunks += " Info";
  std::printf("saved the state of %s as a VST 3 preset (chunks %s, %lld bytes)\n",
              Host.GetProcessor().GetName().c_str(), Chunks.c_str(), static_cast<long long>(Saved.GetSize()));
  std::printf("written: %s\n", Output.c_str());
  return 0;
}

int Load(const TArgs& Args) {
  std::string Class;
  TArgs Files;
  if (const int Rc = ParseOptions(
          Args, {{"-c", true, [&](const std::string& V) { return !(Class = V).empty(); }, "a class name or identifier"}},
          Files, 2))
    return Rc;
  if (Files.size() != 2) return Usage();
  if (const std::string Why = CheckExistingFile("preset", Files[1]); !Why.empty()) return Fail(Why);
  TSRVST3Host Host;
  TReports Reports;
  Reports.Attach(Host);
  if (!OpenModule(Host, Reports, Files[0], Class)) return 1;
  Host.LoadPreset(Files[1]);
  if (!Reports.Empty()) return Fail(OneLine(Reports.First()));
  std::printf("loaded preset %s into %s\n", Files[1].c_str(), Host.GetProcessor().GetName().c_str());
  return 0;
}

}  // namespace

int PresetVst3(const TArgs& Args) {
  if (Args.empty() || std::none_of(Args.begin() + 1, Args.end(), NamesVst3Module)) return -1;
  const TArgs Rest(Args.begin() + 1, Args.end());
  if (Args[0] == "save") return Save(Rest);
  if (Args[0] == "load") return Load(Rest);
  return Usage();
}

}  // namespace Quorvel::Cli
