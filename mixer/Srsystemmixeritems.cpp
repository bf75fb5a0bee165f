// The system mixer's collection items: one control each, bound to a pin of
// its kind, found again by association after every rebuild.
#include <limits>

#include "mixer/Srsystemmixer.h"

namespace Quorvel {

using Threading::TLockGuard;
using TCat = TSRSystemMixerControlCategory;
using TCtl = TSRSystemMixerControlType;

namespace {
int32_t ToInt32(int64_t V) {
  if (V > std::numeric_limits<int32_t>::max()) return std::numeric_limits<int32_t>::max();
  if (V < std::numeric_limits<int32_t>::min()) return std::numeric_limits<int32_t>::min();
  return static_cast<int32_t>(V);
}

// A source pin sends the value even when it did not change, also when its
// range clamps a new value to the one it already holds.
template <typename P, typename V>
void SendOut(P& Pin, V Value) {
  const V Before = Pin.GetValue();
  Pin.SetValue(Value);  // sends when the stored value changed
  if (Pin.GetValue() == Before) Pin.SendValue();
}

template <typename T>
TWBClassInfo ItemClassInfo(const char* Name) {
  TWBClassInfo Info = MakeClassInfo(Name, nullptr, {});
  Info.DefineProperties = [](void* Object, TWBFiler& Filer) { static_cast<T*>(Object)->DefineProperties(Filer); };
  return Info;
}
}  // namespace

// ---- base ------------------------------------------------------------------

TSRSystemMixerCollectionItem::TSRSystemMixerCollectionItem(TWBCollectionBase& Collection, TCat PinCategory)
    : TLockCollectionItem(Collection),
      FMixer(dynamic_cast<TSRSystemMixer*>(Collection.GetOwner())),
      FPinCategory(PinCategory) {}

TSRSystemMixerCollectionItem::~TSRSystemMixerCollectionItem() {
  SetMixerControl(nullptr);
  if (FOwnPin) {
    FOwnPin->DisconnectAll();
    TPWPinList& List = GetPinList();
    const int Index = List.IndexOf(FOwnPin);
    if (Index >= 0) List.Delete(static_cast<size_t>(Index));
  }
}

TPWPinList& TSRSystemMixerCollectionItem::GetPinList() const {
  return FMixer->GetControlPinGroups().ForCategory(FPinCategory);
}

std::string TSRSystemMixerCollectionItem::PinNameWhenBound() const {
  TPWBasicPin* Pin = GetPin();
  if (GetMixerControl() && Pin) return Pin->GetDisplayName();
  return TSRSystemMixerCollectionItem::GetPinName();
}

void TSRSystemMixerCollectionItem::AttachPin(TPWBasicPin* Pin) {
  FOwnPin = Pin;
  GetPinList().Add(Pin);
}

std::string TSRSystemMixerCollectionItem::NewPinName() const {
  return GetCollection().GetItemName() + std::to_string(GetPinList().Count() + 1);
}

void TSRSystemMixerCollectionItem::SetMixerControl(TSRSystemMixerControl* Control) {
  {
    TLockGuard G(GetItemLock());
    if (FControl) FControl->RemoveRef(this);
    FControl = Control;
    if (Control) Control->AddRef(this);
  }
  if (Control) {
    ControlBound();
    OnMixerControlChange(Control);
  }
}

void TSRSystemMixerCollectionItem::PopulateConnection() {
  TSRSystemMixerControl* Found = nullptr;
  if (FMixer && FMixer->GetMixerId() >= 0) Found = FAssociation.Find(*FMixer, GetControlCategory());
  SetMixerControl(Found);
}

std::string TSRSystemMixerCollectionItem::GetDisplayName() const {
  std::string Text = FControl ? FControl->GetDetailedName() : std::string("No Control Selected");
  const std::string Inherited = TLockCollectionItem::GetDisplayName();
  if (!Inherited.empty()) Text += " -> " + Inherited;
  return Text;
}

void TSRSystemMixerCollectionItem::SetIndex(int NewIndex) {
  TLockCollectionItem::SetIndex(NewIndex);
  if (!FOwnPin) return;
  // The pin moves to the item's new place; the other pins keep their order.
  TPWPinList& List = GetPinList();
  int From = List.IndexOf(FOwnPin);
  const int To = std::min(GetIndex(), static_cast<int>(List.Count()) - 1);
  if (From < 0 || To < 0) return;
  for (; From < To; ++From) List.Swap(static_cast<size_t>(From), static_cast<size_t>(From + 1));
  for (; From > To; --From) List.Swap(static_cast<size_t>(From), static_cast<size_t>(From - 1));
}

void TSRSystemMixerCollectionItem::DefineProperties(TWBFiler& Filer) {
  Filer.DefineProperty(
      "Association",
      [this](TWBReader& Reader) {
        // The kind's own category finds the control, whatever category was stored.
        if (FAssociation.Read(Reader))
          PopulateConnection();
        else
          SetMixerControl(nullptr);
      },
      [this](TWBWriter& Writer) { TSRSystemMixerAssociation::Write(Writer, FControl); }, true);
}

// ---- fader and slider ------------------------------------------------------

TSRSystemMixerRangedItem::TSRSystemMixerRangedItem(TWBCollectionBase& Collection, TCat Category)
    : TSRSystemMixerCollectionItem(Collection, Category) {
  FPin = new TPWIntAndRangedStatePin(*GetMixer(), NewPinName(), 0, 0, 0);
  FPin->OnValueChanged = [this](TPWIntegerPinBase&, int64_t Value) { PinWritten(Value); };
  AttachPin(FPin);
}

// The fader and slider items go by their pin's connection rather than by the control.
std::string TSRSystemMixerRangedItem::GetPinName() const {
  if (FPin->IsConnected()) return FPin->GetDisplayName();
  return TSRSystemMixerCollectionItem::GetPinName();
}

void TSRSystemMixerRangedItem::ControlBound() {
  if (TSRSystemMixerControl* C = GetMixerControl()) FPin->SetRange(C->GetMin(), C->GetMax());
}

void TSRSystemMixerRangedItem::OnMixerControlChange(TSRSystemMixerControl* Control) {
  if (!Control) return;
  int32_t Value = 0;
  {
    TLockGuard G(GetItemLock());
    Value = Control->GetIntegerValue();
  }
  FPin->SetValue(Value);
}

void TSRSystemMixerRangedItem::PinWritten(int64_t Value) {
  TLockGuard G(GetItemLock());
  if (TSRSystemMixerControl* C = GetMixerControl()) C->SetIntegerValue(ToInt32(Value));
}

void TSRSystemMixerFaderCollectionItem::PinWritten(int64_t Value) {
  TLockGuard G(GetItemLock());
  TSRSystemMixerControl* C = GetMixerControl();
  if (!C) return;
  FPin->SetRange(C->GetMin(), C->GetMax());
  C->SetIntegerValue(ToInt32(Value));
}

int32_t TSRSystemMixerRangedItem::GetValue() const {
  TLockGuard G(GetItemLock());
  TSRSystemMixerControl* C = GetMixerControl();
  return C ? C->GetIntegerValue() : 0;
}

void TSRSystemMixerRangedItem::SetValue(int32_t Value) {
  TLockGuard G(GetItemLock());
  TSRSystemMixerControl* C = GetMixerControl();
  if (!C) return;
  if (Value > GetMax()) Value = GetMax();
  if (Value < GetMin()) Value = GetMin();
  C->SetIntegerValue(Value);
}

int32_t TSRSystemMixerRangedItem::GetMin() const {
  TLockGuard G(GetItemLock());
  TSRSystemMixerControl* C = GetMixerControl();
  return C ? C->GetMin() : 0;
}

int32_t TSRSystemMixerRangedItem::GetMax() const {
  TLockGuard G(GetItemLock());
  TSRSystemMixerControl* C = GetMixerControl();
  return C ? C->GetMax() : 0;
}

// ---- number and time -------------------------------------------------------

TSRSystemMixerIntegerItem::TSRSystemMixerIntegerItem(TWBCollectionBase& Collection, TCat Category)
    : TSRSystemMixerCollectionItem(Collection, Category) {
  FPin = new TPWIntegerStatePin(*GetMixer(), NewPinName());
  FPin->OnValueChanged = [this](TPWIntegerPinBase&, int64_t Value) {
    TLockGuard G(GetItemLock());
    if (TSRSystemMixerControl* C = GetMixerControl()) C->SetIntegerValue(ToInt32(Value));
  };
  AttachPin(FPin);
}

void TSRSystemMixerIntegerItem::OnMixerControlChange(TSRSystemMixerControl* Control) {
  if (!Control) return;
  int32_t Value = 0;
  {
    TLockGuard G(GetItemLock());
    Value = Control->GetIntegerValue();
  }
  FPin->SetValue(Value);
}

int32_t TSRSystemMixerIntegerItem::GetValue() const {
  TLockGuard G(GetItemLock());
  TSRSystemMixerControl* C = GetMixerControl();
  return C ? C->GetIntegerValue() : 0;
}

void TSRSystemMixerIntegerItem::SetValue(int32_t Value) {
  TLockGuard G(GetItemLock());
  if (TSRSystemMixerControl* C = GetMixerControl()) C->SetIntegerValue(Value);
}

// ---- list and switch -------------------------------------------------------

TSRSystemMixerBoolItem::TSRSystemMixerBoolItem(TWBCollectionBase& Collection, TCat Category)
    : TSRSystemMixerCollectionItem(Collection, Category) {
  FPin = new TPWBoolStatePin(*GetMixer(), NewPinName());
  FPin->OnValueChanged = [this](TPWBoolPinBase&, bool Value) {
    TLockGuard G(GetItemLock());
    if (TSRSystemMixerControl* C = GetMixerControl()) C->SetBoolValue(Value);
  };
  AttachPin(FPin);
}

void TSRSystemMixerBoolItem::OnMixerControlChange(TSRSystemMixerControl* Control) {
  if (!Control) return;
  bool Value = false;
  {
    TLockGuard G(GetItemLock());
    Value = Control->GetBoolValue();
  }
  FPin->SetValue(Value);
}

bool TSRSystemMixerBoolItem::GetValue() const {
  TLockGuard G(GetItemLock());
  TSRSystemMixerControl* C = GetMixerControl();
  return C ? C->GetBoolValue() : false;
}

void TSRSystemMixerBoolItem::SetValue(bool Value) {
  TLockGuard G(GetItemLock());
  if (TSRSystemMixerControl* C = GetMixerControl()) C->SetBoolValue(Value);
}

// ---- meters ----------------------------------------------------------------

TSRSystemMixerIntegerMeterCollectionItem::TSRSystemMixerIntegerMeterCollectionItem(TWBCollectionBase& Collection)
    : TSRSystemMixerCollectionItem(Collection, TCat::mctIntegerMeter) {
  FPin = new TPWIntRangedSourcePin(*GetMixer(), NewPinName(), 0, 0, 0);
  AttachPin(FPin);
}

bool TSRSystemMixerIntegerMeterCollectionItem::IsSameType(TCtl ControlType) const {
  // Deliberately refuses boolean meters, which the model builds as integer meters all the same:
  // kept, so such a control is bound to this kind only by assigning it.
  return ControlType != TCtl::smcBooleanMeter;
}

void TSRSystemMixerIntegerMeterCollectionItem::ControlBound() {
  if (TSRSystemMixerControl* C = GetMixerControl()) FPin->SetRange(C->GetMin(), C->GetMax());
}

void TSRSystemMixerIntegerMeterCollectionItem::OnMixerControlChange(TSRSystemMixerControl* Control) {
  if (!Control) return;
  int32_t Value = 0;
  {
    TLockGuard G(GetItemLock());
    Value = Control->GetIntegerValue();
  }
  SendOut(*FPin, static_cast<int64_t>(Value));
}

int32_t TSRSystemMixerIntegerMeterCollectionItem::GetValue() const {
  TLockGuard G(GetItemLock());
  TSRSystemMixerControl* C = GetMixerControl();
  return C ? C->GetIntegerValue() : 0;
}

int32_t TSRSystemMixerIntegerMeterCollectionItem::GetMin() const {
  TLockGuard G(GetItemLock());
  TSRSystemMixerControl* C = GetMixerControl();
  return C ? C->GetMin() : 0;
}

int32_t TSRSystemMixerIntegerMeterCollectionItem::GetMax() const {
  TLockGuard G(GetItemLock());
  TSRSystemMixerControl* C = GetMixerControl();
  return C ? C->GetMax() : 0;
}

TSRSystemMixerBooleanMeterCollectionItem::TSRSystemMixerBooleanMeterCollectionItem(TWBCollectionBase& Collection)
    : TSRSystemMixerCollectionItem(Collection, TCat::mctBooleanMeter) {
  FPin = new TPWBoolSourcePin(*GetMixer(), NewPinName());
  AttachPin(FPin);
}

bool TSRSystemMixerBooleanMeterCollectionItem::IsSameType(TCtl ControlType) const {
  // Deliberately boolean meters only, though the model builds every meter as an integer meter,
  // so a re-find never binds this kind: kept as the item always was.
  return ControlType == TCtl::smcBooleanMeter;
}

void TSRSystemMixerBooleanMeterCollectionItem::OnMixerControlChange(TSRSystemMixerControl* Control) {
  if (!Control) return;
  bool Value = false;
  {
    TLockGuard G(GetItemLock());
    Value = Control->GetBoolValue();
  }
  SendOut(*FPin, Value);
}

bool TSRSystemMixerBooleanMeterCollectionItem::GetValue() const {
  TLockGuard G(GetItemLock());
  TSRSystemMixerControl* C = GetMixerControl();
  return C ? C->GetBoolValue() : false;
}

// ---- classes ---------------------------------------------------------------

#define QUORVEL_MIXER_ITEM_CLASS(T)                       \
  const TWBClassInfo& T::ClassInfo() {                    \
    static const TWBClassInfo Info = ItemClassInfo<T>(#T); \
    return Info;                                          \
  }
QUORVEL_MIXER_ITEM_CLASS(TSRSystemMixerFaderCollectionItem)
QUORVEL_MIXER_ITEM_CLASS(TSRSystemMixerSliderCollectionItem)
QUORVEL_MIXER_ITEM_CLASS(TSRSystemMixerNumberCollectionItem)
QUORVEL_MIXER_ITEM_CLASS(TSRSystemMixerTimeCollectionItem)
QUORVEL_MIXER_ITEM_CLASS(TSRSystemMixerListCollectionItem)
QUORVEL_MIXER_ITEM_CLASS(TSRSystemMixerSwitchCollectionItem)
QUORVEL_MIXER_ITEM_CLASS(TSRSystemMixerIntegerMeterCollectionItem)
QUORVEL_MIXER_ITEM_CLASS(TSRSystemMixerBooleanMeterCollectionItem)
#undef QUORVEL_MIXER_ITEM_CLASS

// ---- groups ----------------------------------------------------------------

namespace {
TPWPinCategories IntegerPins() { return TPWPinCategories{TPWPinCategory::pcInteger}; }
TPWPinCategories BoolPins() { return TPWPinCategories{TPWPinCategory::pcBool}; }
}  // namespace

TSRSystemMixerControlPinGroups::TSRSystemMixerControlPinGroups(TWBComponent& Mixer)
    : Faders(Mixer, Mixer.GetLock(), IntegerPins(), true),
      Lists(Mixer, Mixer.GetLock(), BoolPins(), true),
      BoolMeters(Mixer, Mixer.GetLock(), BoolPins(), true),
      IntegerMeters(Mixer, Mixer.GetLock(), IntegerPins(), true),
      Numbers(Mixer, Mixer.GetLock(), IntegerPins(), true),
      Sliders(Mixer, Mixer.GetLock(), IntegerPins(), true),
      Switches(Mixer, Mixer.GetLock(), BoolPins(), true),
      Times(Mixer, Mixer.GetLock(), IntegerPins(), true) {}

TPWPinList& TSRSystemMixerControlPinGroups::ForCategory(TCat Category) {
  switch (Category) {
    case TCat::mctFader: return Faders;
    case TCat::mctList: return Lists;
    case TCat::mctBooleanMeter: return BoolMeters;
    case TCat::mctIntegerMeter: return IntegerMeters;
    case TCat::mctNumber: return Numbers;
    case TCat::mctSlider: return Sliders;
    case TCat::mctSwitch: return Switches;
    default: return Times;
  }
}

TSRSystemMixerControlGroups::TSRSystemMixerControlGroups(TWBComponent& Mixer)
    : TWBPersistent(&Mixer),
      FFaders(&Mixer, "Fader"),
      FLists(&Mixer, "List"),
      FBoolMeters(&Mixer, "BoolMeter"),
      FIntegerMeters(&Mixer, "IntegerMeter"),
      FNumbers(&Mixer, "Number"),
      FSliders(&Mixer, "Slider"),
      FSwitches(&Mixer, "Switch"),
      FTimes(&Mixer, "Time") {}

void TSRSystemMixerControlGroups::PopulateConnections() {
  const TWBCollectionBase* const Order[] = {&FFaders,  &FLists,   &FBoolMeters, &FIntegerMeters,
                                            &FNumbers, &FSliders, &FSwitches,   &FTimes};
  for (const TWBCollectionBase* Group : Order)
    for (size_t I = 0; I < Group->Count(); ++I)
      static_cast<TSRSystemMixerCollectionItem*>(Group->GetItem(I))->PopulateConnection();
}

namespace {
template <typename T>
TWBPropertyInfo GroupCollection(const std::string& Name, TWBCollection<T>& (TSRSystemMixerControlGroups::*Accessor)()) {
  TWBPropertyInfo P = CollectionProperty(Name, Accessor, T::ClassInfo());
  P.Stored = [Accessor](void* O) { return (static_cast<TSRSystemMixerControlGroups*>(O)->*Accessor)().Count() > 0; };
  return P;
}
}  // namespace

const TWBClassInfo& TSRSystemMixerControlGroups::ClassInfo() {
  using G = TSRSystemMixerControlGroups;
  static const TWBClassInfo Info = MakeClassInfo(
      "TSRSystemMixerControlGroups", nullptr,
      {GroupCollection("Faders", &G::GetFaders), GroupCollection("Lists", &G::GetLists),
       GroupCollection("BoolMeters", &G::GetBoolMeters), GroupCollection("IntegerMeters", &G::GetIntegerMeters),
       GroupCollection("Numbers", &G::GetNumbers), GroupCollection("Sliders", &G::GetSliders),
       GroupCollection("Switches", &G::GetSwitches), GroupCollection("Times", &G::GetTimes)});
  return Info;
}

}  // namespace Quorvel
