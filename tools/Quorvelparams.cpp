// quorvel params | programs | preset save|load | bank save|load, and the
// settings (--bank, -P, --preset, -x) that these commands and `process` apply
// to a plug-in after opening it. Files are checked to be whole before the
// host loads them, so that a file cut short or damaged is reported instead of
// being applied in part; saved files go through a temporary file beside the
// target and take its place only when complete.
#include <algorithm>
#include <cctype>
#include <cstdio>
#include <string>
#include <vector>

#include "frame/Wbstreams.h"
#include "platform/Files.h"
#include "tools/Quorvelcli.h"
#include "vst2/Srvsthost.h"

namespace Quorvel::Cli {
namespace {

// Headers as the host reads them: parameter form, chunk form (which ends in
// the chunk's size).
constexpr int64_t kPresetHeader = 56, kChunkPresetHeader = 60;
constexpr int64_t kBankHeader = 156, kChunkBankHeader = 160;
// What the host's own writers put before the values: 4 more bytes than read.
constexpr int64_t kWrittenPresetHeader = 60, kWrittenBankHeader = 160;

int32_t BigEndianAt(const uint8_t* P) {
  return static_cast<int32_t>(uint32_t(P[0]) << 24 | uint32_t(P[1]) << 16 | uint32_t(P[2]) << 8 | P[3]);
}

std::string Trimmed(const std::string& S) {
  const auto Begin = S.find_first_not_of(' ');
  if (Begin == std::string::npos) return std::string();
  return S.substr(Begin, S.find_last_not_of(' ') - Begin + 1);
}

bool SameIgnoringCase(const std::string& A, const std::string& B) {
  return A.size() == B.size() && std::equal(A.begin(), A.end(), B.begin(), [](char X, char Y) {
           return std::tolower(static_cast<unsigned char>(X)) == std::tolower(static_cast<unsigned char>(Y));
         });
}

// The index of the parameter Name means: a whole number is an index; else
// the parameter of that name (blanks around names ignored), exactly, or
// ignoring case when only one matches. Prints why and answers -1 otherwise.
int32_t FindParameter(TSRVSTHost& Host, const std::string& Name) {
  TSRVSTParameters& Params = Host.GetParameters();
  long Index = -1;
  if (ParseInt(Name, Index)) {
    if (Index < 0 || Index >= static_cast<long>(Params.Count())) {
      Fail("parameter " + Name + " out of range (" + CountText(Host.GetNumParams(), "parameters") + ")");
      return -1;
    }
    return static_cast<int32_t>(Index);
  }
  const std::string Wanted = Trimmed(Name);
  std::vector<int32_t> Exact, Loose;
  for (size_t I = 0; I < Params.Count(); ++I) {
    const std::string Own = Trimmed(Params[I].GetName());
    if (Own == Wanted) Exact.push_back(static_cast<int32_t>(I));
    if (SameIgnoringCase(Own, Wanted)) Loose.push_back(static_cast<int32_t>(I));
  }
  const std::vector<int32_t>& Found = Exact.empty() ? Loose : Exact;
  if (Found.size() == 1) return Found[0];
  if (Found.empty())
    Fail("no parameter named \"" + Name + "\" (" + CountText(Host.GetNumParams(), "parameters") +
         "; quorvel params lists them)");
  else
    Fail("more than one parameter is named \"" + Name + "\" (" + std::to_string(Found[0]) + " and " +
         std::to_string(Found[1]) + "); give its index");
  return -1;
}

bool SetParameterText(TSRVSTHost& Host, const std::string& Text) {
  const size_t Eq = Text.rfind('=');
  const std::string Name = Text.substr(0, Eq), ValueText = Text.substr(Eq + 1);
  const int32_t Index = FindParameter(Host, Name);
  if (Index < 0) return false;
  double Value = 0;
  if (!ParseDouble(ValueText, Value) || Value < 0 || Value > 1) {
    Fail("-x " + Text + ": the value of parameter " + std::to_string(Index) + " (" + Host.GetParameters()[Index].GetName() +
         ") must be a number from 0 to 1");
    return false;
  }
  Host.SetParameter(Index, static_cast<float>(Value));
  return true;
}

// Why the file cannot be loaded whole ("" when it can), read the way the host
// reads it. Only files naming this plug-in come here.
std::string CheckBody(TSRVSTHost& Host, TWBStream& S, const std::string& File, bool Bank, const uint8_t* Head,
                      int64_t Header, bool ParameterForm) {
  const int64_t Size = S.GetSize();
  const std::string Named = File + " is ";
  if (!ParameterForm) {
    const int32_t Chunk = BigEndianAt(Head + Header - 4);
    if (Chunk < 0) return Named + "damaged: it gives its chunk a size of " + std::to_string(Chunk) + " bytes";
    if (Header + Chunk > Size)
      return Named + "cut short: it announces a chunk of " + std::to_string(Chunk) + " bytes and holds " +
             std::to_string(Size - Header);
    return std::string();
  }
  const int32_t Params = std::max(Host.GetNumParams(), 0);
  if (!Bank) {
    const int32_t Values = BigEndianAt(Head + 24);
    if (Values < 0) return Named + "damaged: it announces " + std::to_string(Values) + " parameter values";
    if (Header + 4 * int64_t(Values) > Size)
      return Named + "cut short: it announces " + std::to_string(Values) + " parameter values and holds " +
             std::to_string((Size - Header) / 4);
    if (Values == Params && Size == kWrittenPresetHeader + 4 * int64_t(Values))
      Warn(File + " has its values at byte 60, as this host writes presets; they are read from byte 56, so each "
                  "value lands one parameter later");
    return std::string();
  }
  const int32_t Programs = BigEndianAt(Head + 24);
  if (Programs < 0) return Named + "damaged: it announces " + std::to_string(Programs) + " programs";
  const int32_t Own = std::max(Host.GetNumPrograms(), 0);
  if (Programs > Own)
    Warn(File + " holds " + std::to_string(Programs) + " programs and the plug-in has " + std::to_string(Own) +
         ": only the first " + std::to_string(Own) + " are loaded");
  if (Programs > 0 && Size == kWrittenBankHeader + int64_t(Programs) * (kWrittenPresetHeader + 4 * int64_t(Params))) {
    Warn(File + " is laid out as this host writes banks (headers of 160 and 60 bytes); it is read with headers of "
                "156 and 56 bytes, so its programs do not load as they were saved");
    return std::string();
  }
  // Each program the host will read: a 56-byte header and its values.
  int64_t Position = Header;
  for (int32_t P = 0; P < std::min(Programs, Own); ++P) {
    uint8_t Program[kPresetHeader];
    if (S.Seek(Position, TWBSeekOrigin::soBeginning) != Position || !S.ReadExact(Program, sizeof Program))
      return Named + "cut short: it announces " + std::to_string(Programs) + " programs and holds " +
             std::to_string(P);
    const int32_t Values = BigEndianAt(Program + 24);
    if (Values < 0)
      return Named + "damaged: program " + std::to_string(P) + " announces " + std::to_string(Values) +
             " parameter values";
    Position += kPresetHeader + 4 * int64_t(Values);
    if (Position > Size)
      return Named + "cut short: program " + std::to_string(P) + " announces " + std::to_string(Values) +
             " parameter values and the file ends before them";
  }
  return std::string();
}

// ---- what a load changed ----------------------------------------------------------

struct TState {
  int32_t Program = 0;
  std::string ProgramName;
  std::vector<std::string> ProgramNames;  // banks only
  std::vector<float> Values;
  std::vector<std::string> Displays;
};

TState TakeState(TSRVSTHost& Host, bool AllPrograms) {
  TState S;
  S.Program = Host.GetCurrentProgramNumber();
  S.ProgramName = Host.GetCurrentProgramName();
  TSRVSTParameters& Params = Host.GetParameters();
  for (size_t I = 0; I < Params.Count(); ++I) {
    S.Values.push_back(Params[I].GetValue());
    S.Displays.push_back(Params[I].GetAsString());
  }
  // Names last: a plug-in that cannot name programs by index is switched to
  // each and back, which may reset its values.
  if (AllPrograms)
    for (size_t I = 0; I < Host.GetPrograms().Count(); ++I) S.ProgramNames.push_back(Host.GetPrograms().Get(I)->GetName());
  return S;
}

void PrintChanges(TSRVSTHost& Host, const TState& Before, const TState& After) {
  std::printf("program %d \"%s\"", After.Program, After.ProgramName.c_str());
  if (Before.Program != After.Program || Before.ProgramName != After.ProgramName)
    std::printf(" (was %d \"%s\")", Before.Program, Before.ProgramName.c_str());
  std::printf("\n");
  size_t Renamed = 0;
  for (size_t I = 0; I < After.ProgramNames.size() && I < Before.ProgramNames.size(); ++I)
    Renamed += After.ProgramNames[I] != Before.ProgramNames[I];
  if (!After.ProgramNames.empty()) {
    std::printf("program names changed: %zu of %zu\n", Renamed, After.ProgramNames.size());
    for (size_t I = 0; I < After.ProgramNames.size() && I < Before.ProgramNames.size(); ++I)
      if (After.ProgramNames[I] != Before.ProgramNames[I])
        std::printf("  %4zu  \"%s\" -> \"%s\"\n", I, Before.ProgramNames[I].c_str(), After.ProgramNames[I].c_str());
  }
  std::vector<size_t> Changed;
  size_t Width = 4;
  for (size_t I = 0; I < After.Values.size() && I < Before.Values.size(); ++I)
    if (After.Values[I] != Before.Values[I] || After.Displays[I] != Before.Displays[I]) {
      Changed.push_back(I);
      Width = std::max(Width, Host.GetParameters()[I].GetName().size());
    }
  std::printf("parameters changed: %zu of %zu\n", Changed.size(), After.Values.size());
  for (const size_t I : Changed)
    std::printf("  %4zu  %-*s  %.4f -> %.4f  (%s -> %s)\n", I, static_cast<int>(Width),
                Host.GetParameters()[I].GetName().c_str(), Before.Values[I], After.Values[I], Before.Displays[I].c_str(),
                After.Displays[I].c_str());
}

// ---- the listing of parameters ------------------------------------------------------

std::string Number(double V) {
  char Text[32];
  std::snprintf(Text, sizeof Text, "%g", V);
  return Text;
}

// The property groups the plug-in gives for P, "-" when it gives none.
std::string PropertiesText(TSRVSTParameter& P) {
  if (!P.CheckProperties()) return "-";
  std::vector<std::string> Parts;
  if (P.GetIsSwitch()) Parts.push_back("switch");
  if (P.GetCanRamp()) Parts.push_back("can ramp");
  if (const auto R = P.GetIntegerMinMax(); R.Available())
    Parts.push_back("integers " + std::to_string(R.Min) + ".." + std::to_string(R.Max));
  if (const auto S = P.GetFloatStep(); S.Available())
    Parts.push_back("steps " + Number(S.Step) + "/" + Number(S.SmallStep) + "/" + Number(S.LargeStep));
  if (const auto S = P.GetIntegerStep(); S.Available())
    Parts.push_back("integer steps " + std::to_string(S.Step) + "/" + std::to_string(S.LargeStep));
  if (const auto D = P.GetDisplay(); D.Available())
    Parts.push_back("display " + std::to_string(D.Index) + " \"" + D.ShortLabel + "\"");
  if (const auto C = P.GetCategory(); C.Available())
    Parts.push_back("category " + std::to_string(C.Category) + " \"" + C.Label + "\" of " +
                    std::to_string(C.ParametersInCategory));
  if (Parts.empty()) return "given, no groups";
  std::string Text;
  for (const auto& Part : Parts) Text += (Text.empty() ? "" : "; ") + Part;
  return Text;
}

// Rows of cells, printed as aligned columns or separated by tabs.
void PrintTable(const std::vector<std::vector<std::string>>& Rows, bool Tabs) {
  // Widths in characters: UTF-8 continuation bytes take no room.
  auto Width = [](const std::string& S) {
    return static_cast<size_t>(std::count_if(S.begin(), S.end(), [](char C) { return (C & 0xC0) != 0x80; }));
  };
  std::vector<size_t> Widths;
  for (const auto& Row : Rows)
    for (size_t C = 0; C < Row.size(); ++C) {
      if (Widths.size() <= C) Widths.push_back(0);
      Widths[C] = std::max(Widths[C], Width(Row[C]));
    }
  for (const auto& Row : Rows) {
    std::string Line;
    for (size_t C = 0; C < Row.size(); ++C) {
      if (Tabs) {
        Line += (C ? "\t" : "") + Row[C];
      } else if (C == 0) {
        Line += std::string(Widths[0] - Width(Row[0]), ' ') + Row[0];  // numbers to the right
      } else {
        Line += "  " + Row[C];
        if (C + 1 < Row.size()) Line += std::string(Widths[C] - Width(Row[C]), ' ');
      }
    }
    std::printf("%s\n", Line.c_str());
  }
}

// Parses a listing command's options, opens the plug-in and applies the settings.
int OpenForListing(const TArgs& Args, TSRVSTHost& Host, TReports& Reports, bool& Tabs) {
  TPlugInSettings Settings;
  std::vector<TOption> Options = {{"--tab", false, [&](const std::string&) { return Tabs = true; }, ""}};
  AddSettingOptions(Options, Settings);
  TArgs Files;
  if (const int Rc = ParseOptions(Args, Options, Files, 1)) return Rc;
  if (Files.size() != 1) return Usage();
  Reports.Attach(Host);
  if (!OpenPlugIn(Host, Reports, Files[0]) || !ApplySettings(Host, Reports, Settings)) return 1;
  return 0;
}

int SaveFile(const TArgs& Args, bool Bank) {
  TPlugInSettings Settings;
  std::vector<TOption> Options;
  AddSettingOptions(Options, Settings);
  TArgs Files;
  if (const int Rc = ParseOptions(Args, Options, Files, 2)) return Rc;
  if (Files.size() != 2) return Usage();
  const std::string &PlugIn = Files[0], &Output = Files[1];
  TOutputFile File;
  if (!File.Prepare(Output, {{"the plug-in", PlugIn}})) return 1;
  TSRVSTHost Host;
  TReports Reports;
  Reports.Attach(Host);
  if (!OpenPlugIn(Host, Reports, PlugIn) || !ApplySettings(Host, Reports, Settings)) return 1;
  const int32_t Program = Host.GetCurrentProgramNumber();
  const std::string ProgramName = Host.GetCurrentProgramName();

  TWBMemoryStream Saved;
  Bank ? Host.SaveBank(Saved) : Host.SavePreset(Saved);
  if (!Reports.Empty()) return Fail(Reports.Last());
  if (Saved.GetSize() == 0) return Fail("the plug-in gave nothing to save; " + Output + " was not written");
  {
    TWBFileStream Out(File.GetWorkName(), Platform::TFileOpenMode::fomCreate);
    if (!Out.IsOpen()) return Fail("cannot write " + Output + ": " + Out.GetOpenError());
    if (!Out.WriteExact(Saved.GetData().data(), Saved.GetSize()) || !Out.Flush())
      return Fail("cannot write " + Output + ": " + Out.GetLastErrorText());
  }
  if (!File.Commit()) return 1;
  const bool Chunks = Host.GetEffectFlags().Contains(TEffFlag::effFlagsProgramChunks);
  const char* Form = Chunks ? "chunk" : "parameter";
  if (!Chunks)
    Warn(Output + " has its values after headers 4 bytes longer than those read (as this host always wrote them); "
                  "loaded here or elsewhere, each value lands one parameter later");
  if (Bank)
    std::printf("saved %d programs of %s as a bank (%s form, %lld bytes)\n", std::max(Host.GetNumPrograms(), 0),
                Host.GetEffectName().c_str(), Form, static_cast<long long>(Saved.GetSize()));
  else
    std::printf("saved program %d \"%s\" of %s as a preset (%s form, %lld bytes)\n", Program, ProgramName.c_str(),
                Host.GetEffectName().c_str(), Form, static_cast<long long>(Saved.GetSize()));
  std::printf("written: %s\n", Output.c_str());
  return 0;
}

int LoadFile(const TArgs& Args, bool Bank) {
  TArgs Files;
  if (const int Rc = ParseOptions(Args, {}, Files, 2)) return Rc;
  if (Files.size() != 2) return Usage();
  TSRVSTHost Host;
  TReports Reports;
  Reports.Attach(Host);
  if (!OpenPlugIn(Host, Reports, Files[0])) return 1;
  const TState Before = TakeState(Host, Bank);
  if (!LoadPlugInFile(Host, Reports, Files[1], Bank)) return 1;
  std::printf("loaded %s %s into %s\n", Bank ? "bank" : "preset", Files[1].c_str(), Host.GetEffectName().c_str());
  PrintChanges(Host, Before, TakeState(Host, Bank));
  return 0;
}

int SaveOrLoad(const TArgs& Args, bool Bank) {
  if (Args.empty()) return Usage();
  const TArgs Rest(Args.begin() + 1, Args.end());
  if (Args[0] == "save") return SaveFile(Rest, Bank);
  if (Args[0] == "load") return LoadFile(Rest, Bank);
  return Usage();
}

}  // namespace

void AddSettingOptions(std::vector<TOption>& Options, TPlugInSettings& Settings) {
  Options.push_back({"--bank", true, [&](const std::string& V) { return !(Settings.Bank = V).empty(); }, "a bank file"});
  Options.push_back({"-P", true, [&](const std::string& V) { return ParseInt(V, Settings.Program) && Settings.Program >= 0; },
                     "a program number from 0"});
  Options.push_back(
      {"--preset", true, [&](const std::string& V) { return !(Settings.Preset = V).empty(); }, "a preset file"});
  // Names and values are judged once the plug-in is open.
  Options.push_back({"-x", true,
                     [&](const std::string& V) {
                       const size_t Eq = V.rfind('=');
                       if (Eq == std::string::npos || Eq == 0) return false;
                       Settings.Parameters.push_back(V);
                       return true;
                     },
                     "NAME=VALUE or INDEX=VALUE, the value from 0 to 1"});
}

bool ApplySettings(TSRVSTHost& Host, TReports& Reports, const TPlugInSettings& Settings) {
  if (!Settings.Bank.empty() && !LoadPlugInFile(Host, Reports, Settings.Bank, true)) return false;
  if (Settings.Program >= 0) {
    if (Settings.Program >= Host.GetNumPrograms()) {
      Fail("program " + std::to_string(Settings.Program) + " out of range (" +
           CountText(Host.GetNumPrograms(), "programs") + ")");
      return false;
    }
    Host.SetProgram(static_cast<int32_t>(Settings.Program));
  }
  if (!Settings.Preset.empty() && !LoadPlugInFile(Host, Reports, Settings.Preset, false)) return false;
  for (const auto& Text : Settings.Parameters)
    if (!SetParameterText(Host, Text)) return false;
  return true;
}

bool LoadPlugInFile(TSRVSTHost& Host, TReports& Reports, const std::string& File, bool Bank) {
  const size_t Reported = Reports.Count();
  // The host's own report of what went wrong, else Otherwise.
  auto Refuse = [&](const std::string& Otherwise) {
    Fail(Reports.Count() > Reported ? Reports.Last() : Otherwise);
    return false;
  };
  const auto Kind = Platform::GetPathKind(File);
  if (Kind == Platform::TPathKind::pkMissing) {
    // The host names a missing file in its own words.
    Bank ? Host.LoadBank(File) : Host.LoadPreset(File);
    return Refuse(File + " does not exist");
  }
  if (Kind != Platform::TPathKind::pkFile) return Refuse(CheckExistingFile(Bank ? "bank" : "preset", File));

  TWBFileStream Stream(File, Platform::TFileOpenMode::fomRead);
  if (!Stream.IsOpen()) return Refuse("cannot read " + File + ": " + Stream.GetOpenError());
  uint8_t Head[kChunkBankHeader] = {};
  const int64_t Got = Stream.Read(Head, std::min<int64_t>(Stream.GetSize(), sizeof Head));
  if (Got < 0) return Refuse("cannot read " + File + ": " + Stream.GetLastErrorText());
  // The form is the byte at offset 9, as the host decides it.
  const bool ParameterForm = Got > 9 && Head[9] == 'x';
  const int64_t Header = Bank ? (ParameterForm ? kBankHeader : kChunkBankHeader)
                              : (ParameterForm ? kPresetHeader : kChunkPresetHeader);
  if (Got < Header)
    return Refuse(File + " is cut short: " + std::to_string(Got) + " bytes, fewer than the " + std::to_string(Header) +
                  " bytes of a " + (Bank ? "bank" : "preset") + " header");
  // A file for another plug-in goes to the host, which refuses it in its own words.
  if (BigEndianAt(Head + 16) == Host.GetUniqueID()) {
    const std::string Problem = CheckBody(Host, Stream, File, Bank, Head, Header, ParameterForm);
    if (!Problem.empty()) return Refuse(Problem);
  }
  if (Stream.Seek(0, TWBSeekOrigin::soBeginning) != 0) return Refuse("cannot read " + File);
  Bank ? Host.LoadBank(Stream) : Host.LoadPreset(Stream);
  if (Reports.Count() > Reported) return Refuse(std::string());
  return true;
}

int Params(const TArgs& Args) {
  TSRVSTHost Host;
  TReports Reports;
  bool Tabs = false;
  if (const int Rc = OpenForListing(Args, Host, Reports, Tabs)) return Rc;
  std::vector<std::vector<std::string>> Rows{{"index", "name", "label", "display", "value", "automatable", "properties", "group"}};
  TSRVSTParameters& Params = Host.GetParameters();
  for (size_t I = 0; I < Params.Count(); ++I) {
    TSRVSTParameter& P = Params[I];
    char Value[32];
    std::snprintf(Value, sizeof Value, "%.6f", static_cast<double>(P.GetValue()));
    Rows.push_back({std::to_string(I), P.GetName(), P.GetLabel(), P.GetAsString(), Value,
                    P.GetCanBeAutomated() ? "yes" : "no", PropertiesText(P),
                    P.GetStructureGroup().empty() ? "-" : P.GetStructureGroup()});
  }
  PrintTable(Rows, Tabs);
  return 0;
}

int Programs(const TArgs& Args) {
  TSRVSTHost Host;
  TReports Reports;
  bool Tabs = false;
  if (const int Rc = OpenForListing(Args, Host, Reports, Tabs)) return Rc;
  TSRVSTProgram& Programs = Host.GetPrograms();
  if (Programs.Count() == 0) {
    std::printf("%s\n", CountText(Host.GetNumPrograms(), "programs").c_str());
    return 0;
  }
  const int32_t Current = Host.GetCurrentProgramNumber();
  std::vector<std::vector<std::string>> Rows{{"index", "selected", "name"}};
  for (size_t I = 0; I < Programs.Count(); ++I)
    Rows.push_back({std::to_string(I), static_cast<int32_t>(I) == Current ? "*" : "", Programs.Get(I)->GetName()});
  PrintTable(Rows, Tabs);
  return 0;
}

int Preset(const TArgs& Args) {
  if (const int Rc = PresetVst3(Args); Rc >= 0) return Rc;
  return SaveOrLoad(Args, false);
}
int Bank(const TArgs& Args) { return SaveOrLoad(Args, true); }

}  // namespace Quorvel::Cli
