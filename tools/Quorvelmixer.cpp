// `quorvel mixer`: the winmm mixer devices through TSRSystemMixer.
//   quorvel mixer list [-d DEVICE]
//   quorvel mixer get "DETAILED NAME" [-d DEVICE]
//   quorvel mixer set "DETAILED NAME" VALUE [-d DEVICE]
//   quorvel mixer watch [-d DEVICE] [-s SECONDS] [-i MS]
// A control is named by its detailed name as list prints it; without -d the
// devices are searched in order and the first that has the control is used.
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <map>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "mixer/Srsystemmixer.h"
#include "tools/Quorvelcli.h"

namespace Quorvel::Cli {
namespace {

using TCat = TSRSystemMixerControlCategory;

const char* CategoryText(TCat Category) {
  switch (Category) {
    case TCat::mctCustom: return "custom";
    case TCat::mctFader: return "fader";
    case TCat::mctList: return "list";
    case TCat::mctBooleanMeter: return "boolean meter";
    case TCat::mctIntegerMeter: return "meter";
    case TCat::mctNumber: return "number";
    case TCat::mctSlider: return "slider";
    case TCat::mctSwitch: return "switch";
    case TCat::mctTime: return "time";
    default: return "unknown";
  }
}

bool IsBoolean(TCat Category) {
  return Category == TCat::mctSwitch || Category == TCat::mctList || Category == TCat::mctBooleanMeter;
}
bool IsWritable(TCat Category) {
  return Category == TCat::mctFader || Category == TCat::mctSlider || Category == TCat::mctNumber ||
         Category == TCat::mctTime || Category == TCat::mctSwitch || Category == TCat::mctList;
}

// The control's value as text: "on"/"off" for switches and lists, the integer
// otherwise, "-" for custom controls (which have no value the model reads).
std::string ValueText(TSRSystemMixerControl& Control) {
  const TCat Category = Control.GetCategory();
  if (Category == TCat::mctCustom || Category == TCat::mctUnknown) return "-";
  if (IsBoolean(Category)) return Control.GetBoolValue() ? "on" : "off";
  return std::to_string(Control.GetIntegerValue());
}

// Every control of the open device, in model order.
std::vector<TSRSystemMixerControl*> Controls(const TSRSystemMixer& Mixer) {
  std::vector<TSRSystemMixerControl*> All;
  for (size_t L = 0; L < Mixer.GetLineCount(); ++L) {
    const TSRSystemMixerLine& Line = *Mixer.GetLine(L);
    for (size_t C = 0; C < Line.GetConnectionCount(); ++C) {
      const TSRSystemMixerControls& List = Line.GetConnection(C)->GetControls();
      for (size_t I = 0; I < List.Count(); ++I)
        if (TSRSystemMixerControl* Control = List.Get(I)) All.push_back(Control);
    }
  }
  return All;
}

// The device ids to look at: all, or the one named by -d (exact name). An
// unknown name prints why and gives no ids.
bool ChooseDevices(const std::string& Device, std::vector<int32_t>& Ids) {
  TSRSystemMixer Probe;
  const std::vector<std::string> Names = Probe.GetDevice().GetDeviceList();
  for (size_t I = 0; I < Names.size(); ++I)
    if (Device.empty() || Names[I] == Device) Ids.push_back(static_cast<int32_t>(I));
  if (!Device.empty() && Ids.empty()) {
    Fail("no mixer device is called \"" + Device + "\"");
    return false;
  }
  return true;
}

// Opens the device; false (with the reason printed) when it does not open.
bool OpenDevice(TSRSystemMixer& Mixer, int32_t Id) {
  Mixer.SetMixerId(Id);
  if (Mixer.GetMixerId() == Id) return true;
  Fail("mixer device " + std::to_string(Id) + " does not open");
  return false;
}

// Finds the control called Name on the chosen devices; Mixer is left open
// on the device that has it. Prints why and answers null when none has it.
TSRSystemMixerControl* FindControl(TSRSystemMixer& Mixer, const std::string& Device, const std::string& Name) {
  std::vector<int32_t> Ids;
  if (!ChooseDevices(Device, Ids)) return nullptr;
  for (const int32_t Id : Ids) {
    if (!OpenDevice(Mixer, Id)) return nullptr;
    for (TSRSystemMixerControl* Control : Controls(Mixer))
      if (Control->GetDetailedName() == Name) return Control;
  }
  Fail("no mixer control is called \"" + Name + "\"" + (Device.empty() ? "" : " on \"" + Device + "\"") +
       " (quorvel mixer list shows their names)");
  return nullptr;
}

TOption DeviceOption(std::string& Device) {
  return {"-d", true, [&](const std::string& V) { return !(Device = V).empty(); }, "a mixer device's name"};
}

int List(const TArgs& Args) {
  std::string Device;
  TArgs None;
  if (const int Rc = ParseOptions(Args, {DeviceOption(Device)}, None, 0)) return Rc;
  std::vector<int32_t> Ids;
  if (!ChooseDevices(Device, Ids)) return 1;
  if (Ids.empty()) {
    std::printf("no mixer devices\n");
    return 0;
  }
  for (const int32_t Id : Ids) {
    TSRSystemMixer Mixer;
    if (!OpenDevice(Mixer, Id)) return 1;
    const uint32_t Version = Mixer.GetDriverVersion();
    std::printf("device %d: %s (%s, product %u, driver %u.%u, %u destination%s%s)\n", Id,
                Mixer.GetProductName().c_str(), Mixer.GetManufacturer().c_str(), Mixer.GetProductId(),
                Version >> 8 & 0xFF, Version & 0xFF, Mixer.GetDestinationCount(),
                Mixer.GetDestinationCount() == 1 ? "" : "s", Mixer.GetNotifying() ? ", notifies changes" : "");
    for (size_t L = 0; L < Mixer.GetLineCount(); ++L) {
      const TSRSystemMixerLine& Line = *Mixer.GetLine(L);
      std::printf("  destination: %s (%s)\n", Line.GetName().c_str(), Line.GetTypeName().c_str());
      for (size_t C = 0; C < Line.GetConnectionCount(); ++C) {
        TSRSystemMixerConnection& Connection = *Line.GetConnection(C);
        std::printf("    connection: %s (%s)\n", Connection.GetName().c_str(), Connection.GetTypeName().c_str());
        const TSRSystemMixerControls& List = Connection.GetControls();
        for (size_t I = 0; I < List.Count(); ++I) {
          TSRSystemMixerControl* Control = List.Get(I);
          if (!Control) {
            std::printf("      (a control of a class the mixer does not know)\n");
            continue;
          }
          std::printf("      %s\n        %s, %s, %d..%d, value %s\n", Control->GetDetailedName().c_str(),
                      CategoryText(Control->GetCategory()), Control->GetControlTypeName().c_str(), Control->GetMin(),
                      Control->GetMax(), ValueText(*Control).c_str());
        }
      }
    }
  }
  return 0;
}

int Get(const TArgs& Args) {
  std::string Device;
  TArgs Names;
  if (const int Rc = ParseOptions(Args, {DeviceOption(Device)}, Names, 1)) return Rc;
  if (Names.size() != 1) return Usage();
  TSRSystemMixer Mixer;
  TSRSystemMixerControl* Control = FindControl(Mixer, Device, Names[0]);
  if (!Control) return 1;
  std::printf("%s = %s\n", Control->GetDetailedName().c_str(), ValueText(*Control).c_str());
  return 0;
}

// VALUE for Control: on/off/true/false/1/0 for switches and lists, an
// integer within the control's limits otherwise.
bool ParseValue(const TSRSystemMixerControl& Control, const std::string& Text, int32_t& Value, std::string& Expected) {
  if (IsBoolean(Control.GetCategory())) {
    Expected = "on, off, 1 or 0";
    if (Text == "on" || Text == "true" || Text == "1") return Value = 1, true;
    if (Text == "off" || Text == "false" || Text == "0") return Value = 0, true;
    return false;
  }
  Expected = "an integer from " + std::to_string(Control.GetMin()) + " to " + std::to_string(Control.GetMax());
  long Parsed = 0;
  if (!ParseInt(Text, Parsed) || Parsed < Control.GetMin() || Parsed > Control.GetMax()) return false;
  Value = static_cast<int32_t>(Parsed);
  return true;
}

int Set(const TArgs& Args) {
  std::string Device;
  // A negative VALUE is not an option.
  TArgs Positional, Rest;
  for (const std::string& A : Args) {
    long Number = 0;
    (A.size() > 1 && A[0] == '-' && ParseInt(A, Number) ? Positional : Rest).push_back(A);
  }
  TArgs Given;
  if (const int Rc = ParseOptions(Rest, {DeviceOption(Device)}, Given, 2)) return Rc;
  Given.insert(Given.end(), Positional.begin(), Positional.end());
  if (Given.size() != 2) return Usage();
  TSRSystemMixer Mixer;
  TSRSystemMixerControl* Control = FindControl(Mixer, Device, Given[0]);
  if (!Control) return 1;
  if (!IsWritable(Control->GetCategory()))
    return Fail(Control->GetDetailedName() + " is a " + CategoryText(Control->GetCategory()) + " control; it cannot be set");
  int32_t Value = 0;
  std::string Expected;
  if (!ParseValue(*Control, Given[1], Value, Expected))
    return Fail("bad value for " + Control->GetDetailedName() + ": \"" + Given[1] + "\" (expected " + Expected + ")");
  if (IsBoolean(Control->GetCategory()))
    Control->SetBoolValue(Value != 0);
  else
    Control->SetIntegerValue(Value);
  std::printf("%s = %s\n", Control->GetDetailedName().c_str(), ValueText(*Control).c_str());
  return 0;
}

// Watches the controls of one open device: a change the device reports
// reaches Heard through the mixer's notification window; the others are
// found by reading every value at each tick.
class TWatcher : public ISRSystemMixerControlClient {
 public:
  TWatcher(const TSRSystemMixer& Mixer, std::string Device) : FDevice(std::move(Device)) {
    for (TSRSystemMixerControl* Control : Controls(Mixer)) {
      FValues[Control] = ValueText(*Control);
      Control->AddRef(this);
    }
  }
  // Before its mixer: the controls are still there to let it go.
  ~TWatcher() override {
    for (auto& [Control, Value] : FValues) Control->RemoveRef(this);
  }
  size_t Count() const { return FValues.size(); }
  void SetMixerControl(TSRSystemMixerControl* Control) override {}
  void OnMixerControlChange(TSRSystemMixerControl* Control) override { Show(*Control); }
  void Poll() {
    for (auto& [Control, Value] : FValues) Show(*Control);
  }
  double Seconds() const { return std::chrono::duration<double>(std::chrono::steady_clock::now() - FStart).count(); }

 private:
  void Show(TSRSystemMixerControl& Control) {
    const std::string Now = ValueText(Control);
    std::string& Shown = FValues[&Control];
    if (Now == Shown) return;
    Shown = Now;
    std::printf("%7.2f s  %s: %s = %s\n", Seconds(), FDevice.c_str(), Control.GetDetailedName().c_str(), Now.c_str());
    std::fflush(stdout);
  }
  std::string FDevice;
  std::map<TSRSystemMixerControl*, std::string> FValues;
  std::chrono::steady_clock::time_point FStart = std::chrono::steady_clock::now();
};

int Watch(const TArgs& Args) {
  std::string Device;
  double Seconds = 0;
  long Interval = 200;
  TArgs None;
  const int Rc = ParseOptions(
      Args,
      {DeviceOption(Device),
       {"-s", true, [&](const std::string& V) { return ParseDouble(V, Seconds) && Seconds >= 0 && Seconds <= 86400; },
        "seconds from 0 (until interrupted) to 86400"},
       {"-i", true, [&](const std::string& V) { return ParseInt(V, Interval) && Interval >= 10 && Interval <= 10000; },
        "milliseconds from 10 to 10000"}},
      None, 0);
  if (Rc) return Rc;
  std::vector<int32_t> Ids;
  if (!ChooseDevices(Device, Ids)) return 1;
  // One mixer per device, all made on this thread, which owns their windows.
  std::vector<std::unique_ptr<TSRSystemMixer>> Mixers;
  std::vector<std::unique_ptr<TWatcher>> Watchers;
  size_t Watched = 0;
  for (const int32_t Id : Ids) {
    Mixers.push_back(std::make_unique<TSRSystemMixer>());
    if (!OpenDevice(*Mixers.back(), Id)) return 1;
    Watchers.push_back(std::make_unique<TWatcher>(*Mixers.back(), Mixers.back()->GetProductName()));
    Watched += Watchers.back()->Count();
  }
  std::printf("watching %zu control%s on %zu device%s (every %ld ms%s)\n", Watched, Watched == 1 ? "" : "s",
              Mixers.size(), Mixers.size() == 1 ? "" : "s", Interval, Seconds > 0 ? "" : ", Ctrl+C ends");
  std::fflush(stdout);
  using TClock = std::chrono::steady_clock;
  const auto Deadline = Seconds > 0 ? TClock::now() + std::chrono::duration_cast<TClock::duration>(
                                                          std::chrono::duration<double>(Seconds))
                                    : TClock::time_point::max();
  while (TClock::now() < Deadline) {
    const auto Next = std::min(Deadline, TClock::now() + std::chrono::milliseconds(Interval));
    std::this_thread::sleep_until(Next);
    // Reported changes first (as they arrived), then what changed unreported.
    Winmmmixer::DeliverPostedMixerMessages();
    for (auto& W : Watchers) W->Poll();
  }
  Watchers.clear();
  return 0;
}

}  // namespace

int Mixer(const TArgs& Args) {
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
