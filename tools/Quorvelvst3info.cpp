// quorvel info X.vst3: what a VST 3 module is and offers, read through the
// VST 3 host component. The host chooses the module's first class (whatever
// its category) unless -c names another; it is then opened in full, so the
// buses and parameters shown are those of a working instance. Everything is
// gathered before anything is printed: a module that fails at any step gives
// one line (the host's message) and status 1.
#include <algorithm>
#include <cctype>
#include <cstdio>
#include <string>
#include <vector>

#include "platform/Files.h"
#include "platform/Vst3module.h"
#include "tools/Quorvelcli.h"
#include "vst3/Srvst3host.h"

namespace Quorvel::Cli {
namespace {

using namespace Vst3hostintf;
using Vst3hostobjects::TVST3Ref;

// Published flag bits of the records listed here.
constexpr uint32_t kClassDistributable = 1u << 0;
constexpr uint32_t kClassSimpleModeSupported = 1u << 1;
constexpr uint32_t kBusDefaultActive = 1u << 0;
constexpr uint32_t kBusIsControlVoltage = 1u << 1;
constexpr int32_t kBusTypeMain = 0;
constexpr int32_t kBusTypeAux = 1;
struct TFlagName {
  uint32_t Bit;
  const char* Name;
};
constexpr TFlagName kParameterFlagNames[] = {{1u << 0, "automatable"},     {1u << 1, "read-only"},
                                             {1u << 2, "wrap-around"},     {1u << 3, "list"},
                                             {1u << 4, "hidden"},          {1u << 15, "program-change"},
                                             {1u << 16, "bypass"}};

bool EndsWithVst3(std::string Path) {
  while (Path.size() > 1 && (Path.back() == '/' || Path.back() == '\\')) Path.pop_back();
  if (Path.size() < 5) return false;
  std::string Tail = Path.substr(Path.size() - 5);
  std::transform(Tail.begin(), Tail.end(), Tail.begin(), [](unsigned char C) { return char(std::tolower(C)); });
  return Tail == ".vst3";
}

bool SameText(const std::string& A, const std::string& B) {
  return A.size() == B.size() && std::equal(A.begin(), A.end(), B.begin(), [](unsigned char X, unsigned char Y) {
           return std::tolower(X) == std::tolower(Y);
         });
}

std::string OrDash(const std::string& Text) { return Text.empty() ? "-" : Text; }

std::string Join(const std::vector<std::string>& Words, const char* Empty) {
  std::string S;
  for (const auto& W : Words) S += (S.empty() ? "" : " ") + W;
  return S.empty() ? Empty : S;
}

std::string Padded(const std::string& Text, size_t Width) {
  return Text.size() >= Width ? Text : Text + std::string(Width - Text.size(), ' ');
}

std::string Number(const char* Format, double Value) {
  char Text[64];
  std::snprintf(Text, sizeof Text, Format, Value);
  return Text;
}

std::string FactoryFlagNames(const TSRVST3FactoryFlags& Flags) {
  static const char* const Names[4] = {"ClassesDiscardable", "LicenseCheck", "ComponentNonDiscardable", "Unicode"};
  std::vector<std::string> Set;
  for (int M = 0; M < 4; ++M)
    if (Flags.Contains(static_cast<TSRVST3FactoryFlag>(M))) Set.push_back(Names[M]);
  return Join(Set, "(none)");
}

std::string ClassFlagNames(const TSRVST3ClassInfo& Info) {
  const uint32_t Flags = Info.GetFlags().Mask();
  std::vector<std::string> Set;
  if (Flags & kClassDistributable) Set.push_back("Distributable");
  if (Flags & kClassSimpleModeSupported) Set.push_back("SimpleModeSupported");
  if (const uint32_t Other = Flags & ~(kClassDistributable | kClassSimpleModeSupported)) {
    char Hex[16];
    std::snprintf(Hex, sizeof Hex, "0x%x", Other);
    Set.push_back(Hex);
  }
  return Join(Set, "(none)");
}

std::string Cardinality(int32_t Value) {
  return Value == kManyInstances ? "many instances" : std::to_string(Value);
}

// Whether the controller is the component itself: one object answers the
// same base interface for both.
bool ControllerIsComponent(TSRVST3Host& Host) {
  auto Component = TVST3Ref<IComponent>::Share(Host.GetComponent()).Query<IFUnknown>();
  auto Controller = TVST3Ref<IEditController>::Share(Host.GetController()).Query<IFUnknown>();
  return Component && Component.Get() == Controller.Get();
}

std::string ClassLine(const TSRVST3ClassInfo& C, int Index) {
  return std::to_string(Index) + "  " + C.GetName() + "  " + VST3UIDToString(C.GetID());
}

void DescribeClasses(TSRVST3Host& Host, std::string& Out) {
  const int Count = Host.GetClassInfos().GetCount();
  Out += "classes:     " + std::to_string(Count) + "\n";
  for (int I = 0; I < Count; ++I) {
    const TSRVST3ClassInfoRef C = Host.GetClassInfos().GetItem(I);
    if (!C) continue;  // the host has reported it
    Out += "  " + ClassLine(*C, I) + "\n";
    Out += "      category:     " + C->GetCategory() +
           (C->GetSubCategories().empty() ? "" : " (" + C->GetSubCategories() + ")") + "\n";
    Out += "      cardinality:  " + Cardinality(C->GetCardinality()) + "\n";
    Out += "      flags:        " + ClassFlagNames(*C) + "\n";
    Out += "      vendor:       " + OrDash(C->GetVendor()) + "\n";
    Out += "      version:      " + OrDash(C->GetVersion()) + "\n";
    Out += "      SDK version:  " + OrDash(C->GetSdkVersion()) + "\n";
  }
}

void DescribeChoice(TSRVST3Host& Host, std::string& Out) {
  const TGUID ID = Host.GetProcessor().GetID();
  int Index = -1;
  for (int I = 0; I < Host.GetClassInfos().GetCount() && Index < 0; ++I)
    if (const auto C = Host.GetClassInfos().GetItem(I); C && C->GetID() == ID) Index = I;
  Out += "chosen:      " + ClassLine(*Host.GetProcessor().GetClassInfo(), Index) + "\n";
  std::string Controller;
  if (!Host.GetController()) {
    Controller = "none";
  } else if (ControllerIsComponent(Host)) {
    Controller = "the component itself";
  } else {
    TGUID ControllerID = kNullUID;
    Controller = "a separate object";
    if (Host.GetComponent()->getControllerClassId(&ControllerID) == Vst3hostobjects::ModuleResult(Platform::kVst3ResultOk))
      for (int I = 0; I < Host.GetClassInfos().GetCount(); ++I)
        if (const auto C = Host.GetClassInfos().GetItem(I); C && C->GetID() == ControllerID)
          Controller += ", class " + ClassLine(*C, I);
    Controller += Host.GetConnected() ? ", connected" : ", not connected";
  }
  Out += "controller:  " + Controller + "\n";
}

void DescribeBuses(TSRVST3Host& Host, std::string& Out) {
  struct TKind {
    TMediaTypes Type;
    TBusDirections Direction;
    const char* Name;
  };
  static const TKind Kinds[4] = {{kAudio, kInput, "audio in"},
                                 {kAudio, kOutput, "audio out"},
                                 {kEvent, kInput, "event in"},
                                 {kEvent, kOutput, "event out"}};
  std::string Counts, Rows;
  for (const auto& K : Kinds) {
    const int32_t Count = Host.GetBusCount(K.Type, K.Direction);
    Counts += std::string(Counts.empty() ? "" : ", ") + K.Name + " " + std::to_string(Count);
    for (int32_t I = 0; I < Count; ++I) {
      TSRVST3BusInfo Bus;
      if (!Host.GetBusInfo(K.Type, K.Direction, I, Bus)) {
        Rows += "  " + Padded(K.Name, 10) + " " + std::to_string(I) + "  (no information)\n";
        continue;
      }
      std::vector<std::string> Flags;
      Flags.push_back(Bus.BusType == kBusTypeMain  ? "main"
                      : Bus.BusType == kBusTypeAux ? "aux"
                                                   : "type " + std::to_string(Bus.BusType));
      if (Bus.Flags & kBusDefaultActive) Flags.push_back("default-active");
      if (Bus.Flags & kBusIsControlVoltage) Flags.push_back("control-voltage");
      Rows += "  " + Padded(K.Name, 10) + " " + std::to_string(I) + "  " + Padded(OrDash(Bus.Name), 16) + " " +
              std::to_string(Bus.ChannelCount) + (Bus.ChannelCount == 1 ? " channel " : " channels") + "  " +
              Join(Flags, "") + "\n";
    }
  }
  Out += "buses:       " + Counts + "\n" + Rows;
}

std::string Steps(int32_t Count) {
  if (Count == 0) return "continuous";
  if (Count == 1) return "toggle";
  return std::to_string(Count) + " steps";
}

void DescribeParameters(TSRVST3Host& Host, std::string& Out) {
  const int32_t Count = Host.GetParameterCount();
  Out += "parameters:  " + std::to_string(Count) + (Host.GetController() ? "" : " (no controller)") + "\n";
  if (Count == 0) return;
  std::vector<std::vector<std::string>> Rows;
  Rows.push_back({"id", "title", "short", "units", "steps", "default", "value", "display", "flags"});
  for (int32_t I = 0; I < Count; ++I) {
    const TSRVST3ParameterInfo& P = Host.GetParameterInfo(I);
    const double Value = Host.GetParameterValue(P.ID);
    std::vector<std::string> Flags;
    for (const auto& F : kParameterFlagNames)
      if (static_cast<uint32_t>(P.Flags) & F.Bit) Flags.push_back(F.Name);
    Rows.push_back({std::to_string(P.ID), OrDash(P.Title), OrDash(P.ShortTitle), OrDash(P.Units), Steps(P.StepCount),
                    Number("%.4f", P.DefaultNormalizedValue), Number("%.4f", Value),
                    OrDash(Host.GetParameterDisplay(P.ID, Value)), Join(Flags, "-")});
  }
  // Columns as wide as their widest cell (names within reason), the last as it is.
  constexpr size_t kMaxColumn = 40;
  std::vector<size_t> Widths(Rows[0].size(), 0);
  for (auto& R : Rows)
    for (size_t C = 0; C < R.size(); ++C) {
      if (R[C].size() > kMaxColumn) R[C] = R[C].substr(0, kMaxColumn - 3) + "...";
      Widths[C] = std::max(Widths[C], R[C].size());
    }
  for (const auto& R : Rows) {
    std::string Line = " ";
    for (size_t C = 0; C < R.size(); ++C) Line += " " + (C + 1 < R.size() ? Padded(R[C], Widths[C]) + " " : R[C]);
    Out += Line + "\n";
  }
}

// The host's message on one line: some texts break their line ("...\r\nEditor
// class ID: ...").
std::string OneLine(const std::string& Message) {
  std::string Out;
  for (const char C : Message) {
    if (C == '\r' || C == '\n') {
      if (!Out.empty() && Out.back() != ' ') Out += ' ';
    } else {
      Out += C;
    }
  }
  return Out;
}

// Why a module that reported nothing did not open.
std::string SilentFailure(TSRVST3Host& Host, const std::string& File, const std::string& Class) {
  const int Count = Host.GetClassInfos().GetCount();
  if (!Host.GetFactory()) return File + " is not a VST 3 module (it has no GetPluginFactory, or that gave no factory)";
  if (!Class.empty() && !Host.GetProcessor().GetAvailable())
    return File + " has no class named " + Class + " (quorvel info " + File + " lists them)";
  if (Count == 0) return File + " lists no classes";
  return File + " made no component of class " + Host.GetProcessor().GetName();
}

}  // namespace

int InfoVst3(const TArgs& Args) {
  if (std::none_of(Args.begin(), Args.end(), EndsWithVst3)) return -1;
  std::string Class;
  TArgs Files;
  if (const int Rc = ParseOptions(
          Args, {{"-c", true, [&](const std::string& V) { return !(Class = V).empty(); }, "a class name or identifier"}},
          Files, 1))
    return Rc;
  if (Files.size() != 1) return Usage();
  const std::string& File = Files[0];
  const auto Kind = Platform::GetPathKind(File);
  if (Kind != Platform::TPathKind::pkMissing && Kind != Platform::TPathKind::pkFile &&
      Kind != Platform::TPathKind::pkDirectory)
    return Fail(CheckExistingFile("module", File));

  TSRVST3Host Host;
  TReports Reports;
  Reports.Attach(Host);
  // The host's own choice first: the module's first class.
  Host.SetFileName(File);
  if (!Class.empty() && Reports.Empty()) {
    TGUID Wanted = kNullUID;
    for (int I = 0; I < Host.GetClassInfos().GetCount(); ++I)
      if (const auto C = Host.GetClassInfos().GetItem(I);
          C && (C->GetName() == Class || SameText(VST3UIDToString(C->GetID()), Class))) {
        Wanted = C->GetID();
        break;
      }
    Host.GetProcessor().SetID(Wanted);
  }
  const bool Opened = Reports.Empty() && Host.Open();
  if (!Reports.Empty()) return Fail(OneLine(Reports.First()));
  if (!Opened) return Fail(SilentFailure(Host, File, Class));

  const TSRVST3FactoryInfo& Factory = Host.GetFactoryInfo();
  std::string Out;
  Out += "file:        " + File + "\n";
  Out += "library:     " + Platform::Vst3ModuleLibrary(File) + "\n";
  Out += "vendor:      " + OrDash(Factory.Vendor) + "\n";
  Out += "url:         " + OrDash(Factory.URL) + "\n";
  Out += "e-mail:      " + OrDash(Factory.EMail) + "\n";
  Out += "flags:       " + FactoryFlagNames(Factory.Flags) + "\n";
  DescribeClasses(Host, Out);
  DescribeChoice(Host, Out);
  DescribeBuses(Host, Out);
  DescribeParameters(Host, Out);
  // A class the factory failed to describe while listing is a failure too.
  if (!Reports.Empty()) return Fail(OneLine(Reports.First()));
  std::fputs(Out.c_str(), stdout);
  return 0;
}

}  // namespace Quorvel::Cli
