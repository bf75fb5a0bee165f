// `quorvel volume`: the audio endpoints' master levels, read, set and
// watched through TSRMasterVolume.
//   quorvel volume list
//   quorvel volume get [DEVICE]
//   quorvel volume set [DEVICE] LEVEL
//   quorvel volume watch [DEVICE] [-s SECONDS] [-c CHANNELS] [-i MS]
// DEVICE is an endpoint's friendly name or identifier, or DEFAULT (in any
// letter case; the default render endpoint, also when DEVICE is left out).
#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <string>
#include <vector>

#include "frame/Threading.h"
#include "mastervolume/Srmastervolume.h"
#include "platform/Console.h"
#include "tools/Quorvelcli.h"

namespace Quorvel::Cli {
namespace {

// The component's reports: errors are handled (the command decides), and
// each distinct text is kept once.
class TVolumeReports {
 public:
  void Attach(TSRMasterVolume& Volume) {
    Volume.OnError = [this](TWBComponent*, const std::string& Text, int32_t Code, bool& Handled) {
      Handled = true;
      Keep(Errors, Text, Code);
    };
    Volume.OnWarning = [this](TWBComponent*, const std::string& Text, int32_t Code) { Keep(Warnings, Text, Code); };
  }
  bool HasError(const std::string& Call) const { return Has(Errors, Call); }
  bool HasWarning(const std::string& Call) const { return Has(Warnings, Call); }
  std::string Find(const std::string& Call) const {
    for (const auto* List : {&Errors, &Warnings})
      for (const auto& R : *List)
        if (R.first == Call) return EWBException::FormatError(R.first, R.second);
    return std::string();
  }
  // Reports other than those named, as "text - code - hex" lines.
  std::vector<std::string> Others(const std::vector<std::string>& Known) const {
    std::vector<std::string> Lines;
    for (const auto* List : {&Errors, &Warnings})
      for (const auto& R : *List)
        if (std::find(Known.begin(), Known.end(), R.first) == Known.end())
          Lines.push_back(EWBException::FormatError(R.first, R.second));
    return Lines;
  }

 private:
  using TList = std::vector<std::pair<std::string, int32_t>>;
  static void Keep(TList& List, const std::string& Text, int32_t Code) {
    if (!Has(List, Text)) List.emplace_back(Text, Code);
  }
  static bool Has(const TList& List, const std::string& Text) {
    return std::any_of(List.begin(), List.end(), [&](const auto& R) { return R.first == Text; });
  }
  TList Errors, Warnings;
};

// Opens Device (a name, an identifier or DEFAULT) in Volume with Channels
// channel pins; on failure prints why and answers false.
bool OpenEndpoint(TSRMasterVolume& Volume, TVolumeReports& Reports, const std::string& Device, uint32_t Channels) {
  Reports.Attach(Volume);
  Volume.SetEnabled(false);
  Volume.SetNumChannels(Channels);
  Volume.GetDevice().SetName(Device);
  Volume.GetDevice().SetDeviceID(Device);
  Volume.SetEnabled(true);
  if (Volume.GetStarted()) return true;
  for (const char* Call : {"Create IMMDeviceEnumerator", "EnumAudioEndpoints", "GetCount", "GetDefaultAudioEndpoint"})
    if (Reports.HasError(Call)) {
      Fail("cannot open the audio endpoint \"" + Device + "\": " + Reports.Find(Call));
      return false;
    }
  Fail("no active audio endpoint is called or has the identifier \"" + Device + "\"");
  return false;
}

std::string Percent(double Level) {
  char Text[16];
  std::snprintf(Text, sizeof Text, "%3.0f%%", Level * 100.0);
  return Text;
}

int List(const TArgs& Args) {
  TArgs None;
  if (const int Rc = ParseOptions(Args, {}, None, 0)) return Rc;
  TSRMasterVolume Volume;
  TVolumeReports Reports;
  Reports.Attach(Volume);
  const auto Names = Volume.GetDevice().GetDeviceList();
  const auto Ids = Volume.GetDevice().GetDeviceList(TSRMasterVolumeDeviceInfo::mvdiDeviceID);
  if (Reports.HasError("Create IMMDeviceEnumerator") || Reports.HasError("EnumAudioEndpoints") ||
      Reports.HasError("GetCount"))
    return Fail("cannot list the audio endpoints: " + Reports.Others({}).front());
  if (Names.empty()) {
    std::printf("no active audio endpoints\n");
    return 0;
  }
  // The default render endpoint, to mark it.
  std::string DefaultId;
  {
    TSRMasterVolume Default;
    TVolumeReports Quiet;
    Quiet.Attach(Default);
    Default.SetNumChannels(1);
    Default.GetDevice().SetName("DEFAULT");
    if (auto Device = Default.GetDevice().GetMMDevice()) Mmdeviceapi::ReadDeviceId(*Device, DefaultId);
  }
  size_t Width = 4;
  for (const std::string& N : Names) Width = std::max(Width, N.size());
  std::printf("level  %-*s  identifier\n", static_cast<int>(Width), "name");
  for (size_t I = 0; I < Names.size() && I < Ids.size(); ++I) {
    TSRMasterVolume Endpoint;
    TVolumeReports Quiet;
    Quiet.Attach(Endpoint);
    Endpoint.SetNumChannels(1);
    Endpoint.GetDevice().SetDeviceID(Ids[I]);
    const bool Open = Endpoint.GetStarted() && !Quiet.HasWarning("GetMasterVolumeLevelScalar");
    std::printf("%5s  %-*s  %s%s\n", Open ? Percent(Endpoint.GetVolumePin(0)->GetValue()).c_str() : "  ?",
                static_cast<int>(Width), Names[I].c_str(), Ids[I].c_str(), Ids[I] == DefaultId ? "  (default)" : "");
  }
  return 0;
}

int Get(const TArgs& Args) {
  TArgs Devices;
  if (const int Rc = ParseOptions(Args, {}, Devices, 1)) return Rc;
  const std::string Device = Devices.empty() ? "DEFAULT" : Devices[0];
  TSRMasterVolume Volume;
  TVolumeReports Reports;
  if (!OpenEndpoint(Volume, Reports, Device, 1)) return 1;
  if (Reports.HasWarning("GetMasterVolumeLevelScalar"))
    return Fail("cannot read the level: " + Reports.Find("GetMasterVolumeLevelScalar"));
  std::printf("%s: %.3f\n", Volume.GetDevice().GetOpenedName().c_str(), Volume.GetVolumePin(0)->GetValue());
  return 0;
}

int Set(const TArgs& Args) {
  TArgs Positional;
  if (const int Rc = ParseOptions(Args, {}, Positional, 2)) return Rc;
  if (Positional.empty()) return Usage();
  double Level = 0;
  if (!ParseDouble(Positional.back(), Level) || Level < 0 || Level > 1) {
    std::fprintf(stderr, "quorvel: bad value for LEVEL: %s (expected a level from 0 to 1)\n",
                 Positional.back().c_str());
    return Usage();
  }
  const std::string Device = Positional.size() == 2 ? Positional[0] : "DEFAULT";
  TSRMasterVolume Volume;
  TVolumeReports Reports;
  if (!OpenEndpoint(Volume, Reports, Device, 1)) return 1;
  Volume.SetVolume(Level);
  if (Reports.HasWarning("SetMasterVolumeLevelScalar"))
    return Fail("the endpoint refused the level: " + Reports.Find("SetMasterVolumeLevelScalar"));
  std::printf("%s: %.3f\n", Volume.GetDevice().GetOpenedName().c_str(), Volume.GetVolume());
  return 0;
}

std::string Bar(double Fraction, int Width) {
  const int Filled = static_cast<int>(std::lround(std::clamp(Fraction, 0.0, 1.0) * Width));
  return "[" + std::string(static_cast<size_t>(Filled), '#') + std::string(static_cast<size_t>(Width - Filled), '.') +
         "]";
}

int Watch(const TArgs& Args) {
  double Seconds = 0;
  long Channels = 2, Interval = 100;
  TArgs Devices;
  const int Rc = ParseOptions(
      Args,
      {{"-s", true, [&](const std::string& V) { return ParseDouble(V, Seconds) && Seconds >= 0 && Seconds <= 86400; },
        "seconds from 0 (until interrupted) to 86400"},
       {"-c", true, [&](const std::string& V) { return ParseInt(V, Channels) && Channels >= 1 && Channels <= 32; },
        "a channel count from 1 (the master level) to 32"},
       {"-i", true, [&](const std::string& V) { return ParseInt(V, Interval) && Interval >= 10 && Interval <= 10000; },
        "milliseconds from 10 to 10000"}},
      Devices, 1);
  if (Rc) return Rc;
  const std::string Device = Devices.empty() ? "DEFAULT" : Devices[0];
  Threading::SetMainThread();
  TSRMasterVolume Volume;
  TVolumeReports Reports;
  Volume.SetRefreshInterval(static_cast<uint32_t>(Interval));
  if (!OpenEndpoint(Volume, Reports, Device, static_cast<uint32_t>(Channels))) return 1;
  if (Reports.HasError("IAudioMeterInformation"))
    Warn("the endpoint has no peak meter (" + Reports.Find("IAudioMeterInformation") + "); peaks show 0");
  if (Channels > 1 && Reports.HasWarning("GetChannelCount"))
    Warn("the endpoint does not give its channel levels (" + Reports.Find("GetChannelCount") + ")");

  const bool InPlace = Platform::StandardOutputIsTerminal();
  const size_t Lines = Volume.GetVolumePins().Count();
  std::printf("%s (every %ld ms%s)\n", Volume.GetDevice().GetOpenedName().c_str(), Interval,
              InPlace ? ", Ctrl+C ends" : "");
  using TClock = std::chrono::steady_clock;
  const auto Start = TClock::now();
  const auto Deadline = Seconds > 0 ? Start + std::chrono::duration_cast<TClock::duration>(
                                                  std::chrono::duration<double>(Seconds))
                                    : TClock::time_point::max();
  bool Drawn = false;
  for (;;) {
    if (InPlace) {
      // Lines of one width, drawn over the previous ones.
      if (Drawn) Platform::MoveCursorUp(static_cast<int>(Lines));
      for (size_t C = 0; C < Lines; ++C) {
        const double Level = Volume.GetVolumePin(C)->GetValue(), Peak = Volume.GetPeakPin(C)->GetValue();
        std::printf("%-8s %s %s  peak %s %s\n", Lines == 1 ? "master" : ("ch " + std::to_string(C + 1)).c_str(),
                    Percent(Level).c_str(), Bar(Level, 20).c_str(), Percent(Peak).c_str(), Bar(Peak, 20).c_str());
      }
    } else {
      const double At = std::chrono::duration<double>(TClock::now() - Start).count();
      std::printf("%7.2f s ", At);
      for (size_t C = 0; C < Lines; ++C)
        std::printf(" %s: level %.3f peak %.3f", Lines == 1 ? "master" : ("ch " + std::to_string(C + 1)).c_str(),
                    Volume.GetVolumePin(C)->GetValue(), Volume.GetPeakPin(C)->GetValue());
      std::printf("\n");
    }
    std::fflush(stdout);
    Drawn = true;
    // The next refresh arrives through the main-thread queue.
    int Ran = 0;
    while (Ran == 0 && TClock::now() < Deadline) Ran = Threading::WaitAndProcessMainThreadQueue(Interval);
    if (TClock::now() >= Deadline) break;
  }
  for (const std::string& Line : Reports.Others({"IAudioMeterInformation", "GetChannelCount"}))
    Warn(Line);
  return 0;
}

}  // namespace

int Volume(const TArgs& Args) {
  if (Args.empty()) return Usage();
  const std::string& Command = Args[0];
  const TArgs Rest(Args.begin() + 1, Args.end());
  if (Command == "list") return List(Rest);
  if (Command == "get") return Get(Rest);
  if (Command == "set") return Set(Rest);
  if (Command == "watch") return Watch(Rest);
  return Usage();
}

}  // namespace Quorvel::Cli
