// Every VST 2 library of Debian's plug-in packages through the host's
// parameter, program and file operations: every parameter's name, label,
// display text and value read, the programs listed, and a preset and a bank
// saved to memory, the plug-in's values moved, the files loaded back and the
// plug-in's state compared with what was saved.
//
// Parameter form: the host writes 4 filler bytes after each header and reads
// without them (a kept asymmetry its own tests cover), so the files go back
// in the layout the reader reads: the same bytes without the filler.
// Chunk form: the chunk saved after loading must equal the one loaded; a
// plug-in whose chunk changes between two saves of the same state (a time
// stamp) must instead show the same automatable parameter values.
#include <gtest/gtest.h>

#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "tests/vst2/Debianplugins.h"
#include "vst2/Srvstfilebytes.h"
#include "vst2/Srvsthost.h"

using namespace Quorvel;
using namespace Quorvel::Testing;
using TBytes = std::vector<uint8_t>;

namespace {

struct TTotals {
  size_t Libraries = 0, Opened = 0, Parameters = 0, Programs = 0;
  size_t PresetsEqual = 0, BanksEqual = 0, RoundTrips = 0;
  size_t ChunkPlugIns = 0, TimeStamped = 0, ValuesMoved = 0, EmptyBanks = 0;
  double SlowestSeconds = 0;
  std::string Slowest;
};

// Values as plug-ins hand them back after taking them: equal but for the
// last bits of a plug-in's own conversion to and from its units.
bool Near(float A, float B) { return std::fabs(A - B) <= 1e-5f; }

TBytes Save(TSRVSTHost& Host, bool Bank) {
  TWBMemoryStream S;
  Bank ? Host.SaveBank(S) : Host.SavePreset(S);
  return S.GetData();
}

void Load(TSRVSTHost& Host, const TBytes& File, bool Bank) {
  TWBMemoryStream S(File.data(), File.size());
  Bank ? Host.LoadBank(S) : Host.LoadPreset(S);
}

float FloatAt(const TBytes& B, size_t Offset) { return Srvstfilebytes::GetBigEndianFloat(B.data() + Offset); }

class TPlugInCheck {
 public:
  TPlugInCheck(const std::string& Path, TTotals& Totals) : FPath(Path), FTotals(Totals) {
    FHost.OnError = [this](TWBComponent*, const std::string& Message, int32_t, bool& Handled) {
      FErrors.push_back(Message);
      Handled = true;
    };
  }

  // False when the library is no plug-in (it does not open).
  bool Run() {
    FHost.SetFileName(FPath);
    if (!FHost.Open()) return false;
    ++FTotals.Opened;
    ReadEverything();
    TSRVSTParameters& Params = FHost.GetParameters();
    for (size_t I = 0; I < Params.Count(); ++I)
      if (Params[I].GetCanBeAutomated()) FAutomatable.push_back(static_cast<int32_t>(I));
    const bool Chunks = FHost.GetEffectFlags().Contains(TEffFlag::effFlagsProgramChunks);
    FTotals.ChunkPlugIns += Chunks;
    for (const bool Bank : {false, true}) {
      const bool Equal = Chunks ? ChunkRoundTrip(Bank) : ParameterRoundTrip(Bank);
      (Bank ? FTotals.BanksEqual : FTotals.PresetsEqual) += Equal;
      FTotals.RoundTrips += Equal;
    }
    EXPECT_TRUE(FErrors.empty()) << FPath << ": " << FErrors.front();
    FHost.Close();
    return true;
  }

 private:
  void ReadEverything() {
    TSRVSTParameters& Params = FHost.GetParameters();
    EXPECT_EQ(Params.Count(), static_cast<size_t>(std::max(FHost.GetNumParams(), 0))) << FPath;
    for (size_t I = 0; I < Params.Count(); ++I) {
      TSRVSTParameter& P = Params[I];
      const std::string Name = P.GetName();
      P.GetLabel();
      P.GetAsString();
      const float Value = P.GetValue();
      EXPECT_TRUE(std::isfinite(Value)) << FPath << ": parameter " << I << " (" << Name << ")";
      ++FTotals.Parameters;
    }
    // Listing the programs leaves the plug-in in the program it was in.
    const int32_t Current = FHost.GetCurrentProgramNumber();
    TSRVSTProgram& Programs = FHost.GetPrograms();
    for (size_t I = 0; I < Programs.Count(); ++I) {
      Programs.Get(I)->GetName();
      ++FTotals.Programs;
    }
    EXPECT_EQ(FHost.GetCurrentProgramNumber(), Current) << FPath;
  }

  std::vector<float> AutomatableValues() {
    std::vector<float> Values;
    for (const int32_t I : FAutomatable) Values.push_back(FHost.GetParameters()[I].GetValue());
    return Values;
  }

  // Moves every automatable parameter well away from where it is.
  void MoveValues() {
    for (const int32_t I : FAutomatable) {
      TSRVSTParameter& P = FHost.GetParameters()[I];
      const float V = P.GetValue();
      P.SetValue(V < 0.5f ? V + 0.37f : V - 0.37f);
      FTotals.ValuesMoved += !Near(P.GetValue(), V);
    }
  }

  bool SameValues(const std::vector<float>& Want, const char* What) {
    const std::vector<float> Got = AutomatableValues();
    for (size_t K = 0; K < Want.size(); ++K)
      if (!Near(Got[K], Want[K])) {
        ADD_FAILURE() << FPath << ": " << What << ": parameter " << FAutomatable[K] << " ("
                      << FHost.GetParameters()[FAutomatable[K]].GetName() << ") is " << Got[K] << ", saved " << Want[K];
        return false;
      }
    return true;
  }

  bool ChunkRoundTrip(bool Bank) {
    const char* What = Bank ? "bank" : "preset";
    const TBytes Saved = Save(FHost, Bank);
    const size_t Header = Bank ? 160 : 60;
    if (Saved.size() < Header) {
      ADD_FAILURE() << FPath << ": a " << What << " of " << Saved.size() << " bytes";
      return false;
    }
    const bool TimeStamped = Save(FHost, Bank) != Saved;
    FTotals.TimeStamped += TimeStamped && !Bank;
    const std::vector<float> Values = AutomatableValues();
    MoveValues();
    Load(FHost, Saved, Bank);
    if (!TimeStamped) {
      const bool Equal = Save(FHost, Bank) == Saved;
      EXPECT_TRUE(Equal) << FPath << ": the " << What << "'s chunk differs after loading it";
      // The chunk carries the values too: they are back as well.
      return Equal && SameValues(Values, What);
    }
    return SameValues(Values, What);
  }

  bool ParameterRoundTrip(bool Bank) {
    const TBytes Saved = Save(FHost, Bank);
    const size_t N = FHost.GetParameters().Count();
    const size_t Programs = Bank ? FHost.GetPrograms().Count() : 1;
    const size_t Program = 60 + 4 * N, Header = Bank ? 160 : 0;
    if (Saved.size() != Header + Programs * Program) {
      ADD_FAILURE() << FPath << ": " << (Bank ? "bank" : "preset") << " of " << Saved.size() << " bytes";
      return false;
    }
    // The layout the reader reads: without the filler after each header.
    TBytes Standard;
    if (Bank) Standard.assign(Saved.begin(), Saved.begin() + 156);
    std::vector<std::vector<float>> Values(Programs);
    for (size_t P = 0; P < Programs; ++P) {
      const size_t At = Header + P * Program;
      Standard.insert(Standard.end(), Saved.begin() + At, Saved.begin() + At + 56);
      Standard.insert(Standard.end(), Saved.begin() + At + 60, Saved.begin() + At + Program);
      for (const int32_t I : FAutomatable) Values[P].push_back(FloatAt(Saved, At + 60 + 4 * size_t(I)));
    }
    if (!Bank) {
      // The preset holds the values the plug-in shows.
      if (!SameValues(Values[0], "the saved preset")) return false;
      MoveValues();
      Load(FHost, Standard, false);
      return SameValues(Values[0], "preset");
    }
    if (Programs == 0) {
      ++FTotals.EmptyBanks;  // a header only: nothing to compare
      return true;
    }
    MoveValues();
    Load(FHost, Standard, true);
    // The program loaded last is the plug-in's current one; then each in turn.
    if (!SameValues(Values[Programs - 1], "bank, the program loaded last")) return false;
    for (size_t P = 0; P < Programs; ++P) {
      FHost.SetCurrentProgramNumber(static_cast<int32_t>(P));
      if (!SameValues(Values[P], ("bank, program " + std::to_string(P)).c_str())) return false;
    }
    return true;
  }

  const std::string FPath;
  TTotals& FTotals;
  TSRVSTHost FHost;
  std::vector<std::string> FErrors;
  std::vector<int32_t> FAutomatable;
};

}  // namespace

TEST(DebianPlugIns, EveryParameterIsReadAndPresetsAndBanksLoadBackAsSaved) {
  TTotals Totals;
  for (const auto& Package : DebianPlugInPackages())
    for (const auto& File : InstalledLibraries(Package)) {
      ++Totals.Libraries;
      if (std::getenv("QV_TRACE")) std::fprintf(stderr, "%s\n", File.c_str());
      const auto Start = std::chrono::steady_clock::now();
      TPlugInCheck(File, Totals).Run();
      const double Seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - Start).count();
      if (Seconds > Totals.SlowestSeconds) {
        Totals.SlowestSeconds = Seconds;
        Totals.Slowest = File;
      }
    }
  if (Totals.Libraries == 0)
    GTEST_SKIP() << "no Debian VST 2 plug-in package is installed (scripts/setup.sh installs dpf-plugins-vst, "
                    "dragonfly-reverb-vst and lsp-plugins-vst)";
  std::printf("Debian VST 2 plug-ins: %zu libraries, %zu opened (%zu keep chunks, %zu of them time-stamped)\n",
              Totals.Libraries, Totals.Opened, Totals.ChunkPlugIns, Totals.TimeStamped);
  std::printf("  parameters read: %zu (name, label, display, value); programs listed: %zu\n", Totals.Parameters,
              Totals.Programs);
  std::printf("  round trips equal: %zu of %zu (presets %zu, banks %zu, %zu of them parameter-form banks without "
              "programs); parameter values moved before loading: %zu\n",
              Totals.RoundTrips, 2 * Totals.Opened, Totals.PresetsEqual, Totals.BanksEqual, Totals.EmptyBanks,
              Totals.ValuesMoved);
  std::printf("  slowest: %s, %.2f s\n", Totals.Slowest.c_str(), Totals.SlowestSeconds);
  EXPECT_EQ(Totals.RoundTrips, 2 * Totals.Opened);
  // The lsp package carries one library of common code that is not a plug-in.
  EXPECT_LE(Totals.Libraries - Totals.Opened, 1u);
  EXPECT_GT(Totals.ValuesMoved, 0u) << "loading must have had something to restore";
}
