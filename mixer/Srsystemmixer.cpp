#include "mixer/Srsystemmixer.h"

#include <algorithm>
#include <iterator>
#include <limits>

#include "frame/Threading.h"
#include "frame/Wbregistration.h"
#include "platform/Kbdevicelistform.h"

namespace Quorvel {

using namespace Winmmmixer;
using Threading::TLockGuard;
using TCat = TSRSystemMixerControlCategory;
using TCtl = TSRSystemMixerControlType;
using TLine = TSRSystemMixerLineType;

// ---- tables ----------------------------------------------------------------

namespace {

struct TLineTypeEntry {
  const char* Text;
  uint32_t ComponentType;
};
const TLineTypeEntry GLineTypes[] = {
    {"Digital Out", 1},         {"Headphones Out", 5},   {"Line Out", 2},         {"Monitor Out", 3},
    {"Speakers Out", 4},        {"Telephone Out", 6},    {"Undefined Out", 0},    {"VoiceIn Out", 8},
    {"WaveIn Out", 7},          {"Analog In", 0x100A},   {"Auxiliary In", 0x1009}, {"CompactDisc In", 0x1005},
    {"Digital In", 0x1001},     {"Line In", 0x1002},     {"Microphone", 0x1003},  {"PCSpeaker In", 0x1007},
    {"Synthesizer In", 0x1004}, {"Telephone In", 0x1006}, {"Undefined In", 0x1000}, {"WaveOut In", 0x1008}};
static_assert(std::size(GLineTypes) == static_cast<size_t>(TLine::mltSrcWaveOut) + 1, "one entry per line type");

struct TControlTypeEntry {
  const char* Text;
  uint32_t WinmmType;
};
// winmm's MIXERCONTROL_CONTROLTYPE_ values; the last entry stands for any other.
const TControlTypeEntry GControlTypes[] = {
    {"Bass", 0x50030002},           {"Equalizer", 0x50030004},      {"Fader", 0x50030000},
    {"Treble", 0x50030003},         {"Volume", 0x50030001},         {"Mixer", 0x71010001},
    {"Multiselect", 0x71010000},    {"Mux", 0x70010001},            {"Single Select", 0x70010000},
    {"Boolean Meter", 0x10010000},  {"Peak Meter", 0x10020001},     {"Signed Meter", 0x10020000},
    {"Unsigned Meter", 0x10030000}, {"Decibels", 0x30040000},       {"Percent", 0x30050000},
    {"Signed Number", 0x30020000},  {"Unsigned Number", 0x30030000}, {"Pan", 0x40020001},
    {"QSound Pan", 0x40020002},     {"Slider", 0x40020000},         {"Boolean Slider", 0x20010000},
    {"Button", 0x21010000},         {"Loudness", 0x20010004},       {"Mono", 0x20010003},
    {"Mute", 0x20010002},           {"On/Off", 0x20010001},         {"Stereo Enhance", 0x20010005},
    {"Micro Time", 0x60030000},     {"Milli Time", 0x61030000},     {"Unknown", 0xFFFFFFFF}};
static_assert(std::size(GControlTypes) == static_cast<size_t>(TCtl::smcUnknown) + 1, "one entry per control type");

constexpr int32_t GInt32Min = std::numeric_limits<int32_t>::min();
constexpr int32_t GInt32Max = std::numeric_limits<int32_t>::max();

// The subtype bits below the class: compared against the boolean meter type.
uint32_t SubtypeBits(uint32_t ControlType) { return ControlType & 0x0FFFFFFF; }

}  // namespace

std::string SystemMixerLineTypeText(TSRSystemMixerLineType Type) {
  const auto I = static_cast<size_t>(Type);
  return I < std::size(GLineTypes) ? GLineTypes[I].Text : std::string();
}

std::string SystemMixerControlTypeText(TSRSystemMixerControlType Type) {
  const auto I = static_cast<size_t>(Type);
  return I < std::size(GControlTypes) ? GControlTypes[I].Text : std::string();
}

TSRSystemMixerLineType SystemMixerLineTypeOf(uint32_t ComponentType) {
  for (size_t I = 0; I < std::size(GLineTypes); ++I)
    if (GLineTypes[I].ComponentType == ComponentType) return static_cast<TLine>(I);
  // Deliberately the zero value (mltDstDigital) for a type outside the table: kept unreported.
  return TLine::mltDstDigital;
}

TSRSystemMixerControlType SystemMixerControlTypeOf(uint32_t ControlType) {
  for (size_t I = 0; I + 1 < std::size(GControlTypes); ++I)
    if (GControlTypes[I].WinmmType == ControlType) return static_cast<TCtl>(I);
  return TCtl::smcUnknown;
}

// ---- controls --------------------------------------------------------------

TSRSystemMixerControl::TSRSystemMixerControl(TSRSystemMixer& Mixer, TSRSystemMixerControls& Controls,
                                             const TMixerControl& Record, TSRSystemMixerControlCategory Category)
    : FRawType(Record.dwControlType),
      FMixer(Mixer),
      FControls(Controls),
      FControlID(Record.dwControlID),
      FShortName(RecordText(Record.szShortName, 16)),
      FName(RecordText(Record.szName, 64)),
      FDestinationType(Controls.GetConnection().GetLine().GetLineType()),
      FConnectionType(Controls.GetConnection().GetLineType()),
      FCategory(Category) {}

TSRSystemMixerControl::~TSRSystemMixerControl() { ReleaseClients(); }

void TSRSystemMixerControl::ReleaseClients() {
  while (!FRefs.empty()) {
    ISRSystemMixerControlClient* Item = FRefs.back();
    FRefs.pop_back();
    Item->SetMixerControl(nullptr);  // the item's RemoveRef finds nothing left to remove
  }
}

void TSRSystemMixerControl::SetTypeAndLimits(TSRSystemMixerControlType Type, int32_t Min, int32_t Max) {
  FControlType = Type;
  FMin = Min;
  FMax = Max;
}

int TSRSystemMixerControl::GetIndex() const {
  int N = 0;
  for (size_t I = 0; I < FControls.Count(); ++I) {
    const TSRSystemMixerControl* C = FControls.Get(I);
    if (C == this) return N;
    if (C && C->FCategory == FCategory && C->FControlType == FControlType) ++N;
  }
  return -1;
}

std::string TSRSystemMixerControl::GetDetailedName() const {
  const TSRSystemMixerConnection& Connection = FControls.GetConnection();
  const TSRSystemMixerLine& Line = Connection.GetLine();
  return "[" + Line.GetTypeName() + " - " + Line.GetName() + "] - [" + Connection.GetName() + "] - [" +
         GetControlTypeName() + " - " + FShortName + "]";
}

void TSRSystemMixerControl::AddRef(ISRSystemMixerControlClient* Item) {
  if (Item && std::find(FRefs.begin(), FRefs.end(), Item) == FRefs.end()) FRefs.push_back(Item);
}

void TSRSystemMixerControl::RemoveRef(ISRSystemMixerControlClient* Item) {
  const auto It = std::find(FRefs.begin(), FRefs.end(), Item);
  if (It != FRefs.end()) FRefs.erase(It);
}

void TSRSystemMixerControl::FireOnChange() {
  // A client may unbind itself while it hears of the change: walk a copy.
  const std::vector<ISRSystemMixerControlClient*> Refs = FRefs;
  for (ISRSystemMixerControlClient* Item : Refs)
    if (std::find(FRefs.begin(), FRefs.end(), Item) != FRefs.end()) Item->OnMixerControlChange(this);
}

uint32_t TSRSystemMixerControl::ReadRaw() const {
  uint32_t Value = 0;
  void* Handle = FMixer.GetHandle();
  if (!Handle) return 0;
  TMixerControlDetails Details{};
  Details.cbStruct = sizeof(Details);
  Details.dwControlID = FControlID;
  Details.cChannels = 1;  // every channel as one uniform value
  Details.cMultipleItems = 0;
  Details.cbDetails = sizeof(Value);
  Details.paDetails = &Value;
  if (FMixer.GetApi().GetControlDetails(Handle, Details, ObjectHMixer) != MmNoError) return 0;
  return Value;
}

void TSRSystemMixerControl::WriteRaw(uint32_t Value) const {
  void* Handle = FMixer.GetHandle();
  if (!Handle) return;
  TMixerControlDetails Details{};
  Details.cbStruct = sizeof(Details);
  Details.dwControlID = FControlID;
  Details.cChannels = 1;
  Details.cMultipleItems = 0;
  Details.cbDetails = sizeof(Value);
  Details.paDetails = &Value;
  FMixer.GetApi().SetControlDetails(Handle, Details, ObjectHMixer);  // the result is not looked at
}

int32_t TSRSystemMixerControl::Clamp(int32_t Value) const {
  if (Value > FMax) Value = FMax;
  if (Value < FMin) Value = FMin;
  return Value;
}

TSRSystemMixerCustomControl::TSRSystemMixerCustomControl(TSRSystemMixer& Mixer, TSRSystemMixerControls& Controls,
                                                         const TMixerControl& Record)
    : TSRSystemMixerControl(Mixer, Controls, Record, TCat::mctCustom) {
  SetTypeAndLimits(SystemMixerControlTypeOf(FRawType), 0, 0);
}

TSRSystemMixerFaderControl::TSRSystemMixerFaderControl(TSRSystemMixer& Mixer, TSRSystemMixerControls& Controls,
                                                       const TMixerControl& Record)
    : TSRSystemMixerControl(Mixer, Controls, Record, TCat::mctFader) {
  // Deliberately fixed limits rather than the device's bounds: kept as the model always had them.
  SetTypeAndLimits(SystemMixerControlTypeOf(FRawType), 0, 65535);
}
int32_t TSRSystemMixerFaderControl::GetIntegerValue() { return static_cast<int32_t>(ReadRaw()); }
void TSRSystemMixerFaderControl::SetIntegerValue(int32_t Value) { WriteRaw(static_cast<uint32_t>(Clamp(Value))); }

TSRSystemMixerListControl::TSRSystemMixerListControl(TSRSystemMixer& Mixer, TSRSystemMixerControls& Controls,
                                                     const TMixerControl& Record)
    : TSRSystemMixerControl(Mixer, Controls, Record, TCat::mctList) {
  SetTypeAndLimits(SystemMixerControlTypeOf(FRawType), 0, 0);
}
bool TSRSystemMixerListControl::GetBoolValue() { return ReadRaw() != 0; }
void TSRSystemMixerListControl::SetBoolValue(bool Value) { WriteRaw(Value ? 1 : 0); }

TSRSystemMixerIntegerMeterControl::TSRSystemMixerIntegerMeterControl(TSRSystemMixer& Mixer,
                                                                     TSRSystemMixerControls& Controls,
                                                                     const TMixerControl& Record)
    : TSRSystemMixerControl(Mixer, Controls, Record, TCat::mctIntegerMeter) {
  const TCtl Type = SystemMixerControlTypeOf(FRawType);
  switch (Type) {
    case TCtl::smcPeakMeter: SetTypeAndLimits(Type, -32768, 32767); break;
    case TCtl::smcUnsignedMeter: SetTypeAndLimits(Type, 0, GInt32Max); break;
    case TCtl::smcBooleanMeter: SetTypeAndLimits(Type, 0, 1); break;
    default: SetTypeAndLimits(Type, GInt32Min, GInt32Max); break;
  }
}
int32_t TSRSystemMixerIntegerMeterControl::GetIntegerValue() {
  const uint32_t Raw = ReadRaw();
  if (GetControlType() == TCtl::smcUnsignedMeter)  // unsigned values above the signed range saturate
    return Raw > static_cast<uint32_t>(GInt32Max) ? GInt32Max : static_cast<int32_t>(Raw);
  return static_cast<int32_t>(Raw);
}

TSRSystemMixerBooleanMeterControl::TSRSystemMixerBooleanMeterControl(TSRSystemMixer& Mixer,
                                                                     TSRSystemMixerControls& Controls,
                                                                     const TMixerControl& Record)
    : TSRSystemMixerControl(Mixer, Controls, Record, TCat::mctBooleanMeter) {
  SetTypeAndLimits(TCtl::smcBooleanMeter, 0, 1);
}
bool TSRSystemMixerBooleanMeterControl::GetBoolValue() { return ReadRaw() != 0; }

TSRSystemMixerNumberControl::TSRSystemMixerNumberControl(TSRSystemMixer& Mixer, TSRSystemMixerControls& Controls,
                                                         const TMixerControl& Record)
    : TSRSystemMixerControl(Mixer, Controls, Record, TCat::mctNumber) {
  const TCtl Type = SystemMixerControlTypeOf(FRawType);
  switch (Type) {
    case TCtl::smcDecibels: SetTypeAndLimits(Type, -32768, 32767); break;
    case TCtl::smcPercent: SetTypeAndLimits(Type, 0, 100); break;
    case TCtl::smcUnsignedNumber: SetTypeAndLimits(Type, 0, GInt32Max); break;
    default: SetTypeAndLimits(Type, GInt32Min, GInt32Max); break;
  }
}
bool TSRSystemMixerNumberControl::IsUnsigned() const {
  return GetControlType() == TCtl::smcPercent || GetControlType() == TCtl::smcUnsignedNumber;
}
int32_t TSRSystemMixerNumberControl::GetIntegerValue() {
  const uint32_t Raw = ReadRaw();
  if (IsUnsigned()) return Raw > static_cast<uint32_t>(GInt32Max) ? GInt32Max : static_cast<int32_t>(Raw);
  return static_cast<int32_t>(Raw);
}
void TSRSystemMixerNumberControl::SetIntegerValue(int32_t Value) {
  // Clamped to the limits first, so an unsigned number never receives a negative value.
  WriteRaw(static_cast<uint32_t>(Clamp(Value)));
}

TSRSystemMixerSliderControl::TSRSystemMixerSliderControl(TSRSystemMixer& Mixer, TSRSystemMixerControls& Controls,
                                                         const TMixerControl& Record)
    : TSRSystemMixerControl(Mixer, Controls, Record, TCat::mctSlider) {
  const TCtl Type = SystemMixerControlTypeOf(FRawType);
  if (Type == TCtl::smcQSoundPan)
    SetTypeAndLimits(Type, -15, 15);
  else
    SetTypeAndLimits(Type, -32768, 32767);
}
int32_t TSRSystemMixerSliderControl::GetIntegerValue() { return static_cast<int32_t>(ReadRaw()); }
// Deliberately unclamped here: the slider's collection item clamps what it writes.
void TSRSystemMixerSliderControl::SetIntegerValue(int32_t Value) { WriteRaw(static_cast<uint32_t>(Value)); }

TSRSystemMixerSwitchControl::TSRSystemMixerSwitchControl(TSRSystemMixer& Mixer, TSRSystemMixerControls& Controls,
                                                         const TMixerControl& Record)
    : TSRSystemMixerControl(Mixer, Controls, Record, TCat::mctSwitch) {
  SetTypeAndLimits(SystemMixerControlTypeOf(FRawType), 0, 1);
}
bool TSRSystemMixerSwitchControl::GetBoolValue() { return ReadRaw() != 0; }
void TSRSystemMixerSwitchControl::SetBoolValue(bool Value) { WriteRaw(Value ? 1 : 0); }

TSRSystemMixerTimeControl::TSRSystemMixerTimeControl(TSRSystemMixer& Mixer, TSRSystemMixerControls& Controls,
                                                     const TMixerControl& Record)
    : TSRSystemMixerControl(Mixer, Controls, Record, TCat::mctTime) {
  SetTypeAndLimits(SystemMixerControlTypeOf(FRawType), 0, GInt32Max);
}
int32_t TSRSystemMixerTimeControl::GetIntegerValue() { return static_cast<int32_t>(ReadRaw()); }
void TSRSystemMixerTimeControl::SetIntegerValue(int32_t Value) { WriteRaw(static_cast<uint32_t>(Clamp(Value))); }

// ---- controls list, connections, lines -------------------------------------

void TSRSystemMixerControls::Clear() {
  // Controls go last first, each unbinding its clients before it is destroyed.
  while (!FItems.empty()) {
    if (FItems.back()) FItems.back()->ReleaseClients();
    FItems.pop_back();
  }
}

int TSRSystemMixerControls::IndexOf(const TSRSystemMixerControl* Control) const {
  for (size_t I = 0; I < FItems.size(); ++I)
    if (FItems[I].get() == Control) return static_cast<int>(I);
  return -1;
}

bool TSRSystemMixerControls::FindControlByID(uint32_t ControlID, TSRSystemMixerControl*& Control) const {
  for (const auto& C : FItems)
    if (C && C->GetControlID() == ControlID) {
      Control = C.get();
      return true;
    }
  Control = nullptr;
  return false;
}

namespace {
std::unique_ptr<TSRSystemMixerControl> MakeControl(TSRSystemMixer& Mixer, TSRSystemMixerControls& Controls,
                                                   const TMixerControl& Record) {
  switch (Record.dwControlType & ControlClassMask) {
    case 0x00000000: return std::make_unique<TSRSystemMixerCustomControl>(Mixer, Controls, Record);
    case 0x10000000:
      // Deliberately never true (the masked value cannot reach the meter class bit): every meter,
      // boolean ones included, is kept an integer meter.
      if (SubtypeBits(Record.dwControlType) == 0x10010000)
        return std::make_unique<TSRSystemMixerBooleanMeterControl>(Mixer, Controls, Record);
      return std::make_unique<TSRSystemMixerIntegerMeterControl>(Mixer, Controls, Record);
    case 0x20000000: return std::make_unique<TSRSystemMixerSwitchControl>(Mixer, Controls, Record);
    case 0x30000000: return std::make_unique<TSRSystemMixerNumberControl>(Mixer, Controls, Record);
    case 0x40000000: return std::make_unique<TSRSystemMixerSliderControl>(Mixer, Controls, Record);
    case 0x50000000: return std::make_unique<TSRSystemMixerFaderControl>(Mixer, Controls, Record);
    case 0x60000000: return std::make_unique<TSRSystemMixerTimeControl>(Mixer, Controls, Record);
    case 0x70000000: return std::make_unique<TSRSystemMixerListControl>(Mixer, Controls, Record);
    default: return nullptr;  // an empty entry keeps the device's positions
  }
}
}  // namespace

TSRSystemMixerConnection::TSRSystemMixerConnection(TSRSystemMixer& Mixer, TSRSystemMixerLine& Line,
                                                   const TMixerLine& Record)
    : FMixer(Mixer),
      FLine(Line),
      FRecord(Record),
      FName(RecordText(Record.szName, 64)),
      FShortName(RecordText(Record.szShortName, 16)),
      FLineType(SystemMixerLineTypeOf(Record.dwComponentType)),
      FControls(*this) {
  CreateControls();
}

TSRSystemMixerConnection::~TSRSystemMixerConnection() { FControls.Clear(); }

void TSRSystemMixerConnection::CreateControls() {
  const uint32_t Count = FRecord.cControls;
  // A device may answer any count: a buffer that cannot be had leaves the connection empty.
  std::unique_ptr<TMixerControl[]> Buffer;
  try {
    Buffer.reset(new TMixerControl[Count]());
  } catch (const std::bad_alloc&) {
    return;
  }
  TMixerLineControls Query{};
  Query.cbStruct = sizeof(Query);
  Query.dwLineID = FRecord.dwLineID;
  Query.cControls = Count;
  Query.cbmxctrl = sizeof(TMixerControl);
  Query.pamxctrl = Buffer.get();
  if (FMixer.GetApi().GetLineControls(FMixer.GetHandle(), Query, LineControlsAll) != MmNoError) return;
  for (uint32_t I = 0; I < Count; ++I) FControls.Add(MakeControl(FMixer, FControls, Buffer[I]));
}

TSRSystemMixerControl* TSRSystemMixerConnection::FindControlByType(TSRSystemMixerControlCategory Category,
                                                                   TSRSystemMixerControlType ControlType,
                                                                   const std::string& ShortName, int Index) const {
  for (size_t I = 0; I < FControls.Count(); ++I) {
    TSRSystemMixerControl* C = FControls.Get(I);
    if (C && C->GetCategory() == Category && C->GetControlType() == ControlType && C->GetShortName() == ShortName)
      return C;
  }
  for (size_t I = 0; I < FControls.Count(); ++I) {
    TSRSystemMixerControl* C = FControls.Get(I);
    if (C && C->GetCategory() == Category && C->GetControlType() == ControlType && C->GetIndex() == Index) return C;
  }
  return nullptr;
}

TSRSystemMixerLine::TSRSystemMixerLine(TSRSystemMixer& Mixer, const TMixerLine& Record)
    : FMixer(Mixer),
      FRecord(Record),
      FName(RecordText(Record.szName, 64)),
      FShortName(RecordText(Record.szShortName, 16)),
      FLineType(SystemMixerLineTypeOf(Record.dwComponentType)) {
  // The destination's own record first, so its own controls are reachable as a connection.
  FConnections.push_back(std::make_unique<TSRSystemMixerConnection>(Mixer, *this, FRecord));
  for (uint32_t Source = 0; Source < FRecord.cConnections; ++Source) {
    TMixerLine Line{};
    Line.cbStruct = sizeof(Line);
    Line.dwDestination = FRecord.dwDestination;
    Line.dwSource = Source;
    if (Mixer.GetApi().GetLineInfo(Mixer.GetHandle(), Line, LineInfoBySource) == MmNoError)
      FConnections.push_back(std::make_unique<TSRSystemMixerConnection>(Mixer, *this, Line));
  }
}

TSRSystemMixerLine::~TSRSystemMixerLine() {
  while (!FConnections.empty()) FConnections.pop_back();
}

bool TSRSystemMixerLine::FindConnectionByType(TSRSystemMixerLineType Type,
                                              TSRSystemMixerConnection*& Connection) const {
  for (const auto& C : FConnections)
    if (C->GetLineType() == Type) {
      Connection = C.get();
      return true;
    }
  Connection = nullptr;
  return false;
}

bool TSRSystemMixerLine::FindControlByID(uint32_t ControlID, TSRSystemMixerControl*& Control) const {
  for (const auto& C : FConnections)
    if (C->GetControls().FindControlByID(ControlID, Control)) return true;
  Control = nullptr;
  return false;
}

// ---- device selector -------------------------------------------------------

const TWBClassInfo& TSRSystemMixerDeviceItem::ClassInfo() {
  using I = TSRSystemMixerDeviceItem;
  static const TWBClassInfo Info = MakeClassInfo(
      "TSRSystemMixerDeviceItem", nullptr, {Property("DeviceName", &I::GetDeviceName, &I::SetDeviceName, std::string())});
  return Info;
}

void TSRSystemMixerDeviceItem::SetDeviceName(const std::string& Value) {
  if (Value == FDeviceName) return;
  FDeviceName = Value;
  TWBCollectionBase& Collection = GetCollection();
  if (Collection.OnChanged) Collection.OnChanged(Collection);
}

TSRSystemMixerDevice::TSRSystemMixerDevice(TSRSystemMixer& Mixer)
    : TWBPersistent(&Mixer), FMixer(Mixer), FAlternativeDevices(&Mixer, "AlternativeDevice") {
  FAlternativeDevices.OnChanged = [this](TWBCollectionBase&) { AlternativesChanged(); };
}

// The alternatives go with the selector, after the rest of the mixer: nothing to report then.
TSRSystemMixerDevice::~TSRSystemMixerDevice() { FAlternativeDevices.OnChanged = nullptr; }

void TSRSystemMixerDevice::AlternativesChanged() {
  if (FAssigning || FMixer.IsLoading() || FMixer.IsDestroying()) return;
  FMixer.DoDeviceChanged();
}

void TSRSystemMixerDevice::Assign(const TSRSystemMixerDevice& Value) {
  if (&Value == this) return;
  FAssigning = true;
  FAlternativeDevices.Clear();
  const auto& From = Value.GetAlternativeDevices();
  for (size_t I = 0; I < From.Count(); ++I) FAlternativeDevices.Add()->SetDeviceName(From.Get(I)->GetDeviceName());
  FAssigning = false;
  SetName(Value.GetName());
}

const TWBClassInfo& TSRSystemMixerDevice::ClassInfo() {
  using D = TSRSystemMixerDevice;
  static const TWBClassInfo Info = MakeClassInfo(
      "TSRSystemMixerDevice", nullptr,
      {CollectionProperty("AlternativeDevices", &D::GetAlternativeDevices, TSRSystemMixerDeviceItem::ClassInfo()),
       Property("Name", &D::GetName, &D::SetName, std::string())});
  return Info;
}

void TSRSystemMixerDevice::SetName(const std::string& Value) {
  FName = Value;
  FMixer.DoDeviceChanged();
}

std::vector<std::string> TSRSystemMixerDevice::GetDeviceList() const {
  std::vector<std::string> Names;
  IMixerApi& Api = FMixer.GetApi();
  const uint32_t Count = Api.GetNumDevs();
  for (uint32_t I = 0; I < Count; ++I) {
    TMixerCaps Caps{};
    // A device that does not answer still takes its place, so indexes stay device ids.
    if (Api.GetDevCaps(I, Caps) != MmNoError) Caps = TMixerCaps{};
    Names.push_back(RecordText(Caps.szPname, 32));
  }
  return Names;
}

bool TSRSystemMixerDevice::ShowDeviceSelctDialog() {
  TKBDeviceListForm Form;
  Form.SetParentWindow(TKBDeviceListForm::ApplicationTopmostWindow());
  Form.SetCaption("Select Mixer Device");
  Form.SetItems(GetDeviceList());
  Form.SetPreselected(FName);
  if (!Form.Execute()) return false;
  SetName(Form.GetSelected());
  return true;
}

void TSRSystemMixerDevice::CloseDevice() { FMixer.Close(); }

// ---- the mixer -------------------------------------------------------------

TSRSystemMixer::TSRSystemMixer(TWBComponent* Owner)
    : TWBComponent(Owner),
      FDevice(*this),
      FControlPinGroups(std::make_unique<TSRSystemMixerControlPinGroups>(*this)),
      FControlGroups(std::make_unique<TSRSystemMixerControlGroups>(*this)) {
  FWindow = std::make_unique<TMixerNotifyWindow>(
      [this](uint32_t Message, uintptr_t WParam, intptr_t LParam) { return HandleMessage(Message, WParam, LParam); });
}

TSRSystemMixer::~TSRSystemMixer() {
  BeginDestroy();
  Close();
  FControlGroups.reset();  // each item takes its pin out of its list
  FControlPinGroups.reset();
  FWindow.reset();
}

void TSRSystemMixer::SetDevice(const TSRSystemMixerDevice& Value) { FDevice.Assign(Value); }

void TSRSystemMixer::Loaded() { DoDeviceChanged(); }

void* TSRSystemMixer::GetNotifyWindow() const { return FWindow ? FWindow->GetHandle() : nullptr; }

bool TSRSystemMixer::HandleMessage(uint32_t Message, uintptr_t WParam, intptr_t LParam) {
  if (Message == MsgLineChange) return true;  // acknowledged, nothing to do
  if (Message == MsgControlChange) {
    // -1 ("all controls") in the message's 32 bits, however the system widened them.
    if (static_cast<int32_t>(LParam) != -1) DoControlUpdate(static_cast<uint32_t>(LParam));
    return true;
  }
  return false;
}

void TSRSystemMixer::Close() {
  TLockGuard G(GetLock());
  if (FMixerId < 0) return;
  FLines.clear();
  GetApi().Close(FHandle);
  FHandle = nullptr;
  FNotifying = false;
  FMixerId = -1;
}

void TSRSystemMixer::DoDeviceChanged() {
  const std::vector<std::string> Names = FDevice.GetDeviceList();
  for (size_t I = 0; I < Names.size(); ++I)
    if (Names[I] == FDevice.GetName()) {
      SetMixerId(static_cast<int32_t>(I));
      return;
    }
  auto& Alternatives = FDevice.GetAlternativeDevices();
  for (size_t A = 0; A < Alternatives.Count(); ++A)
    for (size_t I = 0; I < Names.size(); ++I)
      if (Names[I] == Alternatives.Get(A)->GetDeviceName()) {
        SetMixerId(static_cast<int32_t>(I));
        return;
      }
}

void TSRSystemMixer::SetMixerId(int32_t Id) {
  TLockGuard G(GetLock());
  IMixerApi& Api = GetApi();
  if (Id < 0 || static_cast<uint32_t>(Id) >= Api.GetNumDevs() || Id == FMixerId) return;
  Close();

  const auto Window = reinterpret_cast<uintptr_t>(GetNotifyWindow());
  void* Handle = nullptr;
  bool Notifying = true;
  if (Api.Open(Handle, static_cast<uint32_t>(Id), Window, 0, CallbackWindow) != MmNoError &&
      Api.Open(Handle, static_cast<uint32_t>(Id), Window, 0, CallbackWindow) != MmNoError) {
    Notifying = false;
    if (Api.Open(Handle, static_cast<uint32_t>(Id), 0, 0, 0) != MmNoError) {
      FMixerId = -1;
      return;
    }
  }
  FHandle = Handle;
  FNotifying = Notifying;
  FMixerId = Id;

  TMixerCaps Caps{};
  Api.GetDevCaps(static_cast<uintptr_t>(Id), Caps);
  FManufacturer = Caps.wMid == 1 ? std::string("Microsoft") : std::to_string(Caps.wMid) + " = Unknown";
  FDriverVersion = Caps.vDriverVersion;
  FProductId = Caps.wPid;
  FProductName = RecordText(Caps.szPname, 32);
  FDevice.SetOpenedName(FProductName);
  FDestinationCount = Caps.cDestinations;

  for (uint32_t D = 0; D < FDestinationCount; ++D) {
    TMixerLine Line{};
    Line.cbStruct = sizeof(Line);
    Line.dwDestination = D;
    if (Api.GetLineInfo(FHandle, Line, LineInfoByDestination) == MmNoError)
      FLines.push_back(std::make_unique<TSRSystemMixerLine>(*this, Line));
  }
  FControlGroups->PopulateConnections();
}

bool TSRSystemMixer::FindLineByType(TSRSystemMixerLineType Type, TSRSystemMixerLine*& Line) const {
  for (const auto& L : FLines)
    if (L->GetLineType() == Type) {
      Line = L.get();
      return true;
    }
  Line = nullptr;
  return false;
}

bool TSRSystemMixer::FindControlByID(uint32_t ControlID, TSRSystemMixerControl*& Control) const {
  for (const auto& L : FLines)
    if (L->FindControlByID(ControlID, Control)) return true;
  Control = nullptr;
  return false;
}

void TSRSystemMixer::DoControlUpdate(uint32_t ControlID) {
  TSRSystemMixerControl* Control = nullptr;
  if (FindControlByID(ControlID, Control)) Control->FireOnChange();
}

// ---- association -----------------------------------------------------------

void TSRSystemMixerAssociation::Write(TWBWriter& Writer, const TSRSystemMixerControl* Control) {
  // The filer's value of what is written is the list itself.
  if (Control) {
    Writer.WriteInteger(static_cast<int64_t>(Control->GetDestinationType()));
    Writer.WriteInteger(static_cast<int64_t>(Control->GetConnectionType()));
    Writer.WriteInteger(static_cast<int64_t>(Control->GetCategory()));
    Writer.WriteInteger(static_cast<int64_t>(Control->GetControlType()));
    Writer.WriteString(Control->GetShortName());
    Writer.WriteInteger(Control->GetIndex());
  }
}

bool TSRSystemMixerAssociation::Read(TWBReader& Reader) {
  int64_t Dst = 0, Con = 0, Cat = 0, Ctl = 0, Index = 0;
  std::string Name;
  const bool Full = Reader.ReadInteger(Dst) && Reader.ReadInteger(Con) && Reader.ReadInteger(Cat) &&
                    Reader.ReadInteger(Ctl) && Reader.ReadString(Name) && Reader.ReadInteger(Index);
  const auto InRange = [](int64_t V, auto Last) { return V >= 0 && V <= static_cast<int64_t>(Last); };
  if (!Full || !InRange(Dst, TLine::mltSrcWaveOut) || !InRange(Con, TLine::mltSrcWaveOut) ||
      !InRange(Cat, TCat::mctTime) || !InRange(Ctl, TCtl::smcUnknown) || Index < GInt32Min || Index > GInt32Max)
    return false;
  Loaded = true;
  DestinationType = static_cast<TLine>(Dst);
  ConnectionType = static_cast<TLine>(Con);
  Category = static_cast<TCat>(Cat);
  ControlType = static_cast<TCtl>(Ctl);
  ShortName = Name;
  this->Index = static_cast<int32_t>(Index);
  return true;
}

TSRSystemMixerControl* TSRSystemMixerAssociation::Find(const TSRSystemMixer& Mixer,
                                                       TSRSystemMixerControlCategory SearchCategory) const {
  TSRSystemMixerLine* Line = nullptr;
  TSRSystemMixerConnection* Connection = nullptr;
  if (!Mixer.FindLineByType(DestinationType, Line) || !Line->FindConnectionByType(ConnectionType, Connection))
    return nullptr;
  return Connection->FindControlByType(SearchCategory, ControlType, ShortName, Index);
}

// ---- class and registration -------------------------------------------------

const TWBClassInfo& TSRSystemMixer::ClassInfo() {
  using C = TSRSystemMixer;
  static const TWBClassInfo Info =
      MakeClassInfo("TSRSystemMixer", &TWBComponent::ClassInfo(),
                    {Group("Device", &C::GetDevice, TSRSystemMixerDevice::ClassInfo()),
                     Group("ControlGroups", &C::GetControlGroups, TSRSystemMixerControlGroups::ClassInfo())},
                    Factory<TSRSystemMixer>());
  return Info;
}

namespace Srsystemmixer {
void RegisterPkg() { Design::Components::RegisterComponents({&TSRSystemMixer::ClassInfo()}); }
void UnregisterPkg() { Design::Components::UnregisterComponents({&TSRSystemMixer::ClassInfo()}); }
}  // namespace Srsystemmixer

}  // namespace Quorvel
