// TSRSystemMixer: the Windows multimedia mixer of one sound device as an
// object model. Opening a device builds its destination lines, the source
// connections of each line (the destination's own record first, so that its
// master controls are reachable as a connection) and the controls of each
// connection; collection items bind one control each and are found again by
// association after every rebuild, never by control identifier.
//
// Threads: the model is built, searched and destroyed on the main thread,
// which also owns the hidden window that mixer notifications arrive at.
// Values are read and written through winmm on the caller's thread.
//
// Failures are not reported: a device that does not open leaves the mixer
// closed, a line or control query that fails leaves that part out.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "frame/Pwpins.h"
#include "frame/Pwvaluepins.h"
#include "frame/Wbcollection.h"
#include "frame/Wbcomponent.h"
#include "frame/Wbpersistence.h"
#include "platform/Winmmmixer.h"

namespace Quorvel {

enum class TSRSystemMixerControlCategory {
  mctUnknown, mctCustom, mctFader, mctList, mctBooleanMeter, mctIntegerMeter, mctNumber, mctSlider, mctSwitch, mctTime
};

enum class TSRSystemMixerLineType {
  mltDstDigital, mltDstHeadphones, mltDstLineOut, mltDstMonitor, mltDstSpeakers, mltDstTelephone, mltDstUndefined,
  mltDstVoiceIn, mltDstWaveIn, mltSrcAnalog, mltSrcAuxiliary, mltSrcCompactDisc, mltSrcDigital, mltSrcLine,
  mltSrcMicrophone, mltSrcPCSpeaker, mltSrcSynthesizer, mltSrcTelephone, mltSrcUndefined, mltSrcWaveOut
};

enum class TSRSystemMixerControlType {
  smcBass, smcEqualizer, smcFader, smcTreble, smcVolume, smcMixer, smcMultiselect, smcMux, smcSingleSelect,
  smcBooleanMeter, smcPeakMeter, smcSignedMeter, smcUnsignedMeter, smcDecibels, smcPercent, smcSignedNumber,
  smcUnsignedNumber, smcPan, smcQSoundPan, smcSlider, smcBooleanSlider, smcButton, smcLoudness, smcMono, smcMute,
  smcOnOff, smcStereoEnh, smcMicroTime, smcMilliTime, smcUnknown
};

// Display texts of the enumerations (indexed by ordinal).
std::string SystemMixerLineTypeText(TSRSystemMixerLineType Type);
std::string SystemMixerControlTypeText(TSRSystemMixerControlType Type);
// winmm's component type as a line type; a type outside the table gives
// mltDstDigital (the zero value).
TSRSystemMixerLineType SystemMixerLineTypeOf(uint32_t ComponentType);
// winmm's control type (dwControlType) as a control type; smcUnknown for
// any other value.
TSRSystemMixerControlType SystemMixerControlTypeOf(uint32_t ControlType);

class TSRSystemMixer;
class TSRSystemMixerLine;
class TSRSystemMixerConnection;
class TSRSystemMixerControl;
class TSRSystemMixerControls;

// What an object that references a control must answer: the collection
// items that bind a control implement it. The control tells each of them
// about value changes and, when it goes, unbinds them.
class ISRSystemMixerControlClient {
 public:
  virtual ~ISRSystemMixerControlClient() = default;
  virtual void SetMixerControl(TSRSystemMixerControl* Control) = 0;
  virtual void OnMixerControlChange(TSRSystemMixerControl* Control) = 0;
};

// One control of a connection. Limits are fixed by the kind and type, not
// read from the device.
class TSRSystemMixerControl {
 public:
  TSRSystemMixerControl(TSRSystemMixer& Mixer, TSRSystemMixerControls& Controls,
                        const Winmmmixer::TMixerControl& Record, TSRSystemMixerControlCategory Category);
  // Unbinds every remaining client, last first.
  virtual ~TSRSystemMixerControl();
  // [main thread] The same, before the control is destroyed: a client
  // writing on another thread is waited for (it holds its item's lock) while
  // the object is still whole.
  void ReleaseClients();
  TSRSystemMixerControl(const TSRSystemMixerControl&) = delete;
  TSRSystemMixerControl& operator=(const TSRSystemMixerControl&) = delete;

  TSRSystemMixer& GetMixer() const { return FMixer; }
  TSRSystemMixerControls& GetControls() const { return FControls; }
  uint32_t GetControlID() const { return FControlID; }
  const std::string& GetShortName() const { return FShortName; }
  const std::string& GetName() const { return FName; }
  TSRSystemMixerLineType GetDestinationType() const { return FDestinationType; }
  TSRSystemMixerLineType GetConnectionType() const { return FConnectionType; }
  TSRSystemMixerControlCategory GetCategory() const { return FCategory; }
  TSRSystemMixerControlType GetControlType() const { return FControlType; }
  int32_t GetMin() const { return FMin; }
  int32_t GetMax() const { return FMax; }

  // Position among the controls of its connection with the same category
  // and type.
  int GetIndex() const;
  std::string GetControlTypeName() const { return SystemMixerControlTypeText(FControlType); }
  // "[<line type> - <line>] - [<connection>] - [<control type> - <short name>]"
  std::string GetDetailedName() const;

  // [main thread] The clients that reference this control (not owned).
  void AddRef(ISRSystemMixerControlClient* Item);
  void RemoveRef(ISRSystemMixerControlClient* Item);
  size_t GetRefCount() const { return FRefs.size(); }

  // [main thread] Tells every client that the value changed.
  virtual void FireOnChange();
  // Value access of the kind; the base reads 0 or false and ignores writes.
  virtual int32_t GetIntegerValue() { return 0; }
  virtual void SetIntegerValue(int32_t Value) {}
  virtual bool GetBoolValue() { return false; }
  virtual void SetBoolValue(bool Value) {}

 protected:
  void SetTypeAndLimits(TSRSystemMixerControlType Type, int32_t Min, int32_t Max);
  // One uniform channel, 4 bytes, through the open mixer handle; a read
  // that fails gives 0, results of writes are ignored.
  uint32_t ReadRaw() const;
  void WriteRaw(uint32_t Value) const;
  int32_t Clamp(int32_t Value) const;

  uint32_t FRawType;  // winmm's dwControlType

 private:
  TSRSystemMixer& FMixer;
  TSRSystemMixerControls& FControls;
  uint32_t FControlID;
  std::string FShortName;
  std::string FName;
  TSRSystemMixerLineType FDestinationType;
  TSRSystemMixerLineType FConnectionType;
  TSRSystemMixerControlCategory FCategory;
  TSRSystemMixerControlType FControlType = TSRSystemMixerControlType::smcUnknown;
  int32_t FMin = 0;
  int32_t FMax = 0;
  std::vector<ISRSystemMixerControlClient*> FRefs;
};

class TSRSystemMixerCustomControl : public TSRSystemMixerControl {
 public:
  TSRSystemMixerCustomControl(TSRSystemMixer& Mixer, TSRSystemMixerControls& Controls,
                              const Winmmmixer::TMixerControl& Record);
};

class TSRSystemMixerFaderControl : public TSRSystemMixerControl {
 public:
  TSRSystemMixerFaderControl(TSRSystemMixer& Mixer, TSRSystemMixerControls& Controls,
                             const Winmmmixer::TMixerControl& Record);
  int32_t GetIntegerValue() override;
  void SetIntegerValue(int32_t Value) override;  // clamped to Min..Max
};

class TSRSystemMixerListControl : public TSRSystemMixerControl {
 public:
  TSRSystemMixerListControl(TSRSystemMixer& Mixer, TSRSystemMixerControls& Controls,
                            const Winmmmixer::TMixerControl& Record);
  bool GetBoolValue() override;
  void SetBoolValue(bool Value) override;
};

class TSRSystemMixerIntegerMeterControl : public TSRSystemMixerControl {
 public:
  TSRSystemMixerIntegerMeterControl(TSRSystemMixer& Mixer, TSRSystemMixerControls& Controls,
                                    const Winmmmixer::TMixerControl& Record);
  int32_t GetIntegerValue() override;  // unsigned for smcUnsignedMeter
};

class TSRSystemMixerBooleanMeterControl : public TSRSystemMixerControl {
 public:
  TSRSystemMixerBooleanMeterControl(TSRSystemMixer& Mixer, TSRSystemMixerControls& Controls,
                                    const Winmmmixer::TMixerControl& Record);
  bool GetBoolValue() override;
};

class TSRSystemMixerNumberControl : public TSRSystemMixerControl {
 public:
  TSRSystemMixerNumberControl(TSRSystemMixer& Mixer, TSRSystemMixerControls& Controls,
                              const Winmmmixer::TMixerControl& Record);
  // Unsigned for smcPercent and smcUnsignedNumber, signed otherwise.
  int32_t GetIntegerValue() override;
  void SetIntegerValue(int32_t Value) override;  // clamped to Min..Max
 private:
  bool IsUnsigned() const;
};

class TSRSystemMixerSliderControl : public TSRSystemMixerControl {
 public:
  TSRSystemMixerSliderControl(TSRSystemMixer& Mixer, TSRSystemMixerControls& Controls,
                              const Winmmmixer::TMixerControl& Record);
  int32_t GetIntegerValue() override;
  void SetIntegerValue(int32_t Value) override;  // not clamped
};

class TSRSystemMixerSwitchControl : public TSRSystemMixerControl {
 public:
  TSRSystemMixerSwitchControl(TSRSystemMixer& Mixer, TSRSystemMixerControls& Controls,
                              const Winmmmixer::TMixerControl& Record);
  bool GetBoolValue() override;
  void SetBoolValue(bool Value) override;
};

class TSRSystemMixerTimeControl : public TSRSystemMixerControl {
 public:
  TSRSystemMixerTimeControl(TSRSystemMixer& Mixer, TSRSystemMixerControls& Controls,
                            const Winmmmixer::TMixerControl& Record);
  int32_t GetIntegerValue() override;
  void SetIntegerValue(int32_t Value) override;  // clamped to Min..Max
};

// The controls of one connection, in the device's order. An entry is null
// where the device named a control class the model does not know.
class TSRSystemMixerControls {
 public:
  explicit TSRSystemMixerControls(TSRSystemMixerConnection& Connection) : FConnection(Connection) {}
  TSRSystemMixerConnection& GetConnection() const { return FConnection; }
  size_t Count() const { return FItems.size(); }
  TSRSystemMixerControl* Get(size_t Index) const { return Index < FItems.size() ? FItems[Index].get() : nullptr; }
  void Add(std::unique_ptr<TSRSystemMixerControl> Control) { FItems.push_back(std::move(Control)); }
  void Clear();
  int IndexOf(const TSRSystemMixerControl* Control) const;
  bool FindControlByID(uint32_t ControlID, TSRSystemMixerControl*& Control) const;

 private:
  TSRSystemMixerConnection& FConnection;
  std::vector<std::unique_ptr<TSRSystemMixerControl>> FItems;
};

// A source line of a destination (or the destination's own record, first).
class TSRSystemMixerConnection {
 public:
  TSRSystemMixerConnection(TSRSystemMixer& Mixer, TSRSystemMixerLine& Line, const Winmmmixer::TMixerLine& Record);
  ~TSRSystemMixerConnection();
  TSRSystemMixer& GetMixer() const { return FMixer; }
  TSRSystemMixerLine& GetLine() const { return FLine; }
  const Winmmmixer::TMixerLine& GetRecord() const { return FRecord; }
  const std::string& GetName() const { return FName; }
  const std::string& GetShortName() const { return FShortName; }
  TSRSystemMixerLineType GetLineType() const { return FLineType; }
  std::string GetTypeName() const { return SystemMixerLineTypeText(FLineType); }
  TSRSystemMixerControls& GetControls() { return FControls; }
  const TSRSystemMixerControls& GetControls() const { return FControls; }

  // Pass 1: the first control of this category and type with that short
  // name; pass 2: the first of this category and type at that index
  // (GetIndex); null when neither finds one. The name wins over the place.
  TSRSystemMixerControl* FindControlByType(TSRSystemMixerControlCategory Category,
                                           TSRSystemMixerControlType ControlType, const std::string& ShortName,
                                           int Index) const;

 private:
  void CreateControls();
  TSRSystemMixer& FMixer;
  TSRSystemMixerLine& FLine;
  Winmmmixer::TMixerLine FRecord;
  std::string FName;
  std::string FShortName;
  TSRSystemMixerLineType FLineType;
  TSRSystemMixerControls FControls;
};

// A destination line with its connections.
class TSRSystemMixerLine {
 public:
  TSRSystemMixerLine(TSRSystemMixer& Mixer, const Winmmmixer::TMixerLine& Record);
  ~TSRSystemMixerLine();
  TSRSystemMixer& GetMixer() const { return FMixer; }
  const Winmmmixer::TMixerLine& GetRecord() const { return FRecord; }
  const std::string& GetName() const { return FName; }
  const std::string& GetShortName() const { return FShortName; }
  TSRSystemMixerLineType GetLineType() const { return FLineType; }
  std::string GetTypeName() const { return SystemMixerLineTypeText(FLineType); }
  size_t GetConnectionCount() const { return FConnections.size(); }
  TSRSystemMixerConnection* GetConnection(size_t Index) const {
    return Index < FConnections.size() ? FConnections[Index].get() : nullptr;
  }
  // The first connection of that type; false and null when none.
  bool FindConnectionByType(TSRSystemMixerLineType Type, TSRSystemMixerConnection*& Connection) const;
  bool FindControlByID(uint32_t ControlID, TSRSystemMixerControl*& Control) const;

 private:
  TSRSystemMixer& FMixer;
  Winmmmixer::TMixerLine FRecord;
  std::string FName;
  std::string FShortName;
  TSRSystemMixerLineType FLineType;
  std::vector<std::unique_ptr<TSRSystemMixerConnection>> FConnections;
};

// One alternative device name.
class TSRSystemMixerDeviceItem : public TWBCollectionItem {
 public:
  using TWBCollectionItem::TWBCollectionItem;
  static const TWBClassInfo& ClassInfo();
  const std::string& GetDeviceName() const { return FDeviceName; }
  // [main thread] A new name is a change of the alternatives (the mixer
  // chooses its device again).
  void SetDeviceName(const std::string& Value);
  std::string GetDisplayName() const override { return FDeviceName; }

 private:
  std::string FDeviceName;
};

// The persisted choice of device: the name wanted, alternatives tried in
// order when it is absent, and the name of the device actually opened. A new
// Name and every change of the alternatives (an item added, removed or moved,
// a new DeviceName) let the mixer choose its device again; while the mixer is
// loading, its Loaded does that once.
class TSRSystemMixerDevice : public TWBPersistent {
 public:
  explicit TSRSystemMixerDevice(TSRSystemMixer& Mixer);
  ~TSRSystemMixerDevice() override;
  static const TWBClassInfo& ClassInfo();
  // [main thread] Takes Value's alternatives and then its name; the mixer
  // chooses its device once, when the name is set.
  void Assign(const TSRSystemMixerDevice& Value);

  const std::string& GetName() const { return FName; }
  // [main thread] Sets the name and lets the mixer choose its device again.
  void SetName(const std::string& Value);
  const std::string& GetOpenedName() const { return FOpenedName; }
  void SetOpenedName(const std::string& Value) { FOpenedName = Value; }
  TWBCollection<TSRSystemMixerDeviceItem>& GetAlternativeDevices() { return FAlternativeDevices; }
  const TWBCollection<TSRSystemMixerDeviceItem>& GetAlternativeDevices() const { return FAlternativeDevices; }

  // [main thread] The product names of all mixer devices, in device order.
  std::vector<std::string> GetDeviceList() const;
  // [main thread] The device list form, owned by the application's topmost
  // window; a confirmed choice becomes Name. Answers whether it was confirmed.
  bool ShowDeviceSelctDialog();  // Deliberately misspelt: kept as the component's published name.
  // [main thread] Closes the mixer's device.
  void CloseDevice();

 private:
  void AlternativesChanged();
  TSRSystemMixer& FMixer;
  std::string FName;
  std::string FOpenedName;
  TWBCollection<TSRSystemMixerDeviceItem> FAlternativeDevices;
  bool FAssigning = false;
};

// An item's stored association: where its control was, to find it again.
struct TSRSystemMixerAssociation {
  bool Loaded = false;
  TSRSystemMixerLineType DestinationType = TSRSystemMixerLineType::mltDstDigital;
  TSRSystemMixerLineType ConnectionType = TSRSystemMixerLineType::mltDstDigital;
  TSRSystemMixerControlCategory Category = TSRSystemMixerControlCategory::mctUnknown;
  TSRSystemMixerControlType ControlType = TSRSystemMixerControlType::smcBass;
  std::string ShortName;
  int32_t Index = 0;

  // The "Association" list of a bound control: four ordinals (destination
  // type, connection type, category, control type), the short name, the
  // index. Nothing for no control.
  static void Write(TWBWriter& Writer, const TSRSystemMixerControl* Control);
  // Reads such a list: false for an empty list (the item unbinds), true
  // with Loaded set for a full one. A malformed list reads as empty.
  bool Read(TWBReader& Reader);
  // The control it names in Mixer (searched with Category), or null.
  TSRSystemMixerControl* Find(const TSRSystemMixer& Mixer, TSRSystemMixerControlCategory Category) const;
};


// ---- collection items: one control each, bound to a pin ---------------------

class TSRSystemMixerControlPinGroups;

// The base of the items. It binds a control (not owned), keeps the stored
// association its control is found again by, and owns one pin in the
// mixer's pin list of its kind. Values are read and written under the
// item's lock; binding happens on the main thread.
class TSRSystemMixerCollectionItem : public TLockCollectionItem, public ISRSystemMixerControlClient {
 public:
  // PinCategory: the kind whose pin list holds this item's pin.
  TSRSystemMixerCollectionItem(TWBCollectionBase& Collection, TSRSystemMixerControlCategory PinCategory);
  ~TSRSystemMixerCollectionItem() override;
  TSRSystemMixer* GetMixer() const { return FMixer; }
  TSRSystemMixerControl* GetMixerControl() const { return FControl; }
  const TSRSystemMixerAssociation& GetAssociation() const { return FAssociation; }

  virtual TSRSystemMixerControlCategory GetControlCategory() const { return TSRSystemMixerControlCategory::mctUnknown; }
  virtual TPWBasicPin* GetPin() const { return nullptr; }
  virtual std::string GetPinName() const { return "Not connected"; }
  // [main thread] Binds Control (null unbinds); the pin shows its value at once.
  void SetMixerControl(TSRSystemMixerControl* Control) override;
  // [main thread] The bound control's value changed: the pin follows.
  void OnMixerControlChange(TSRSystemMixerControl* Control) override {}
  // Whether a control of this type suits the item.
  virtual bool IsSameType(TSRSystemMixerControlType ControlType) const { return true; }

  // [main thread] Finds the control of the stored association (with this
  // kind's category) in the open model; null when it is not there.
  void PopulateConnection();
  // "<detailed name of the control>" or "No Control Selected", then
  // " -> <inherited display name>".
  std::string GetDisplayName() const override;
  // [main thread] Moves the item and its pin to the same place.
  void SetIndex(int NewIndex) override;

  // The "Association" extra property.
  void DefineProperties(TWBFiler& Filer);

 protected:
  // The pin list of this kind in the mixer's pin groups.
  TPWPinList& GetPinList() const;
  // The pin's own text while a control is bound, else the base's text.
  std::string PinNameWhenBound() const;
  // Adds the kind's pin to its list (the list owns it from then on).
  void AttachPin(TPWBasicPin* Pin);
  // The name for a new pin: the collection's item name and a number.
  std::string NewPinName() const;
  // Right after binding a control, before the pin is updated.
  virtual void ControlBound() {}

 private:
  TSRSystemMixer* FMixer;
  TSRSystemMixerControlCategory FPinCategory;
  TPWBasicPin* FOwnPin = nullptr;
  TSRSystemMixerControl* FControl = nullptr;
  TSRSystemMixerAssociation FAssociation;
};

// Fader and slider items: an integer state pin ranged to the control's limits.
class TSRSystemMixerRangedItem : public TSRSystemMixerCollectionItem {
 public:
  TSRSystemMixerRangedItem(TWBCollectionBase& Collection, TSRSystemMixerControlCategory Category);
  TPWBasicPin* GetPin() const override { return FPin; }
  std::string GetPinName() const override;
  void OnMixerControlChange(TSRSystemMixerControl* Control) override;
  // [any thread] 0 without a control; writes clamp to [GetMin, GetMax] first.
  int32_t GetValue() const;
  void SetValue(int32_t Value);
  int32_t GetMin() const;
  int32_t GetMax() const;
  TPWIntAndRangedStatePin& GetStatePin() const { return *FPin; }

 protected:
  void ControlBound() override;
  virtual void PinWritten(int64_t Value);
  TPWIntAndRangedStatePin* FPin;
};

class TSRSystemMixerFaderCollectionItem : public TSRSystemMixerRangedItem {
 public:
  explicit TSRSystemMixerFaderCollectionItem(TWBCollectionBase& Collection)
      : TSRSystemMixerRangedItem(Collection, TSRSystemMixerControlCategory::mctFader) {}
  static const TWBClassInfo& ClassInfo();
  TSRSystemMixerControlCategory GetControlCategory() const override { return TSRSystemMixerControlCategory::mctFader; }

 protected:
  void PinWritten(int64_t Value) override;  // sets the pin's range again first
};

class TSRSystemMixerSliderCollectionItem : public TSRSystemMixerRangedItem {
 public:
  explicit TSRSystemMixerSliderCollectionItem(TWBCollectionBase& Collection)
      : TSRSystemMixerRangedItem(Collection, TSRSystemMixerControlCategory::mctSlider) {}
  static const TWBClassInfo& ClassInfo();
  TSRSystemMixerControlCategory GetControlCategory() const override { return TSRSystemMixerControlCategory::mctSlider; }
};

// Number and time items: a plain integer state pin.
class TSRSystemMixerIntegerItem : public TSRSystemMixerCollectionItem {
 public:
  TSRSystemMixerIntegerItem(TWBCollectionBase& Collection, TSRSystemMixerControlCategory Category);
  TPWBasicPin* GetPin() const override { return FPin; }
  std::string GetPinName() const override { return PinNameWhenBound(); }
  void OnMixerControlChange(TSRSystemMixerControl* Control) override;
  int32_t GetValue() const;
  void SetValue(int32_t Value);

 private:
  TPWIntegerStatePin* FPin;
};

class TSRSystemMixerNumberCollectionItem : public TSRSystemMixerIntegerItem {
 public:
  explicit TSRSystemMixerNumberCollectionItem(TWBCollectionBase& Collection)
      : TSRSystemMixerIntegerItem(Collection, TSRSystemMixerControlCategory::mctNumber) {}
  static const TWBClassInfo& ClassInfo();
  TSRSystemMixerControlCategory GetControlCategory() const override { return TSRSystemMixerControlCategory::mctNumber; }
};

class TSRSystemMixerTimeCollectionItem : public TSRSystemMixerIntegerItem {
 public:
  explicit TSRSystemMixerTimeCollectionItem(TWBCollectionBase& Collection)
      : TSRSystemMixerIntegerItem(Collection, TSRSystemMixerControlCategory::mctTime) {}
  static const TWBClassInfo& ClassInfo();
  TSRSystemMixerControlCategory GetControlCategory() const override { return TSRSystemMixerControlCategory::mctTime; }
};

// List and switch items: a boolean state pin.
class TSRSystemMixerBoolItem : public TSRSystemMixerCollectionItem {
 public:
  TSRSystemMixerBoolItem(TWBCollectionBase& Collection, TSRSystemMixerControlCategory Category);
  TPWBasicPin* GetPin() const override { return FPin; }
  std::string GetPinName() const override { return PinNameWhenBound(); }
  void OnMixerControlChange(TSRSystemMixerControl* Control) override;
  bool GetValue() const;
  void SetValue(bool Value);

 private:
  TPWBoolStatePin* FPin;
};

class TSRSystemMixerListCollectionItem : public TSRSystemMixerBoolItem {
 public:
  explicit TSRSystemMixerListCollectionItem(TWBCollectionBase& Collection)
      : TSRSystemMixerBoolItem(Collection, TSRSystemMixerControlCategory::mctList) {}
  static const TWBClassInfo& ClassInfo();
  TSRSystemMixerControlCategory GetControlCategory() const override { return TSRSystemMixerControlCategory::mctList; }
};

class TSRSystemMixerSwitchCollectionItem : public TSRSystemMixerBoolItem {
 public:
  explicit TSRSystemMixerSwitchCollectionItem(TWBCollectionBase& Collection)
      : TSRSystemMixerBoolItem(Collection, TSRSystemMixerControlCategory::mctSwitch) {}
  static const TWBClassInfo& ClassInfo();
  TSRSystemMixerControlCategory GetControlCategory() const override { return TSRSystemMixerControlCategory::mctSwitch; }
};

// Meters: the control's value leaves on a source pin.
class TSRSystemMixerIntegerMeterCollectionItem : public TSRSystemMixerCollectionItem {
 public:
  explicit TSRSystemMixerIntegerMeterCollectionItem(TWBCollectionBase& Collection);
  static const TWBClassInfo& ClassInfo();
  TSRSystemMixerControlCategory GetControlCategory() const override {
    return TSRSystemMixerControlCategory::mctIntegerMeter;
  }
  TPWBasicPin* GetPin() const override { return FPin; }
  std::string GetPinName() const override { return PinNameWhenBound(); }
  void OnMixerControlChange(TSRSystemMixerControl* Control) override;
  bool IsSameType(TSRSystemMixerControlType ControlType) const override;
  int32_t GetValue() const;
  int32_t GetMin() const;
  int32_t GetMax() const;

 protected:
  void ControlBound() override;

 private:
  TPWIntRangedSourcePin* FPin;
};

class TSRSystemMixerBooleanMeterCollectionItem : public TSRSystemMixerCollectionItem {
 public:
  explicit TSRSystemMixerBooleanMeterCollectionItem(TWBCollectionBase& Collection);
  static const TWBClassInfo& ClassInfo();
  TSRSystemMixerControlCategory GetControlCategory() const override {
    return TSRSystemMixerControlCategory::mctBooleanMeter;
  }
  TPWBasicPin* GetPin() const override { return FPin; }
  std::string GetPinName() const override { return PinNameWhenBound(); }
  void OnMixerControlChange(TSRSystemMixerControl* Control) override;
  bool IsSameType(TSRSystemMixerControlType ControlType) const override;
  bool GetValue() const;

 private:
  TPWBoolSourcePin* FPin;
};

using TSRSystemMixerFaderCollection = TWBCollection<TSRSystemMixerFaderCollectionItem>;
using TSRSystemMixerListCollection = TWBCollection<TSRSystemMixerListCollectionItem>;
using TSRSystemMixerBooleanMeterCollection = TWBCollection<TSRSystemMixerBooleanMeterCollectionItem>;
using TSRSystemMixerIntegerMeterCollection = TWBCollection<TSRSystemMixerIntegerMeterCollectionItem>;
using TSRSystemMixerNumberCollection = TWBCollection<TSRSystemMixerNumberCollectionItem>;
using TSRSystemMixerSliderCollection = TWBCollection<TSRSystemMixerSliderCollectionItem>;
using TSRSystemMixerSwitchCollection = TWBCollection<TSRSystemMixerSwitchCollectionItem>;
using TSRSystemMixerTimeCollection = TWBCollection<TSRSystemMixerTimeCollectionItem>;

// One pin list per item kind; the lists own the items' pins.
class TSRSystemMixerControlPinGroups {
 public:
  explicit TSRSystemMixerControlPinGroups(TWBComponent& Mixer);
  TPWPinList Faders, Lists, BoolMeters, IntegerMeters, Numbers, Sliders, Switches, Times;
  // The list of an item kind's category.
  TPWPinList& ForCategory(TSRSystemMixerControlCategory Category);
};

// The eight collections of items; each streams only when it has items.
class TSRSystemMixerControlGroups : public TWBPersistent {
 public:
  explicit TSRSystemMixerControlGroups(TWBComponent& Mixer);
  static const TWBClassInfo& ClassInfo();
  TSRSystemMixerFaderCollection& GetFaders() { return FFaders; }
  TSRSystemMixerListCollection& GetLists() { return FLists; }
  TSRSystemMixerBooleanMeterCollection& GetBoolMeters() { return FBoolMeters; }
  TSRSystemMixerIntegerMeterCollection& GetIntegerMeters() { return FIntegerMeters; }
  TSRSystemMixerNumberCollection& GetNumbers() { return FNumbers; }
  TSRSystemMixerSliderCollection& GetSliders() { return FSliders; }
  TSRSystemMixerSwitchCollection& GetSwitches() { return FSwitches; }
  TSRSystemMixerTimeCollection& GetTimes() { return FTimes; }
  // [main thread] Every item re-finds its control, group by group in this order.
  void PopulateConnections();

 private:
  TSRSystemMixerFaderCollection FFaders;
  TSRSystemMixerListCollection FLists;
  TSRSystemMixerBooleanMeterCollection FBoolMeters;
  TSRSystemMixerIntegerMeterCollection FIntegerMeters;
  TSRSystemMixerNumberCollection FNumbers;
  TSRSystemMixerSliderCollection FSliders;
  TSRSystemMixerSwitchCollection FSwitches;
  TSRSystemMixerTimeCollection FTimes;
};

// The component.
//
// SetMixerId(Id) [main thread, under the component lock]:
//   1. Nothing unless 0 <= Id < device count and Id is not the open device.
//   2. Close.
//   3. mixerOpen with the notification window (CALLBACK_WINDOW); once more on
//      failure; then without notifications. All failing: closed.
//   4. Capabilities: manufacturer, driver version, product, destination count.
//   5. Each destination that answers becomes a line; each line builds its
//      connections and their controls.
//   6. Every item of the control groups re-finds its control (Faders, Lists,
//      BoolMeters, IntegerMeters, Numbers, Sliders, Switches, Times).
class TSRSystemMixer : public TWBComponent {
 public:
  static const TWBClassInfo& ClassInfo();
  const TWBClassInfo& GetClassInfo() const override { return ClassInfo(); }
  explicit TSRSystemMixer(TWBComponent* Owner = nullptr);
  ~TSRSystemMixer() override;

  TSRSystemMixerDevice& GetDevice() { return FDevice; }
  // [main thread] Takes the alternatives and then the name of Value (which
  // chooses the device).
  void SetDevice(const TSRSystemMixerDevice& Value);

  // ---- the open device [main thread] ----
  int32_t GetMixerId() const { return FMixerId; }
  void SetMixerId(int32_t Id);
  void Close();
  // Chooses the device by the selector's Name, then by its alternatives.
  void DoDeviceChanged();
  const std::string& GetManufacturer() const { return FManufacturer; }
  uint32_t GetDriverVersion() const { return FDriverVersion; }
  uint16_t GetProductId() const { return FProductId; }
  const std::string& GetProductName() const { return FProductName; }
  uint32_t GetDestinationCount() const { return FDestinationCount; }
  // Whether the open device posts its changes to the notification window.
  bool GetNotifying() const { return FNotifying; }

  size_t GetLineCount() const { return FLines.size(); }
  TSRSystemMixerLine* GetLine(size_t Index) const { return Index < FLines.size() ? FLines[Index].get() : nullptr; }
  bool FindLineByType(TSRSystemMixerLineType Type, TSRSystemMixerLine*& Line) const;
  bool FindControlByID(uint32_t ControlID, TSRSystemMixerControl*& Control) const;
  // A control change the device reported: the control's clients hear of it.
  void DoControlUpdate(uint32_t ControlID);

  // The items and their pins.
  TSRSystemMixerControlGroups& GetControlGroups() { return *FControlGroups; }
  TSRSystemMixerControlPinGroups& GetControlPinGroups() { return *FControlPinGroups; }

  // ---- for the model objects ----
  Winmmmixer::IMixerApi& GetApi() const { return Winmmmixer::GetMixerApi(); }
  void* GetHandle() const { return FHandle; }
  void* GetNotifyWindow() const;

 protected:
  // Chooses the device by the selector that was read.
  void Loaded() override;

 private:
  bool HandleMessage(uint32_t Message, uintptr_t WParam, intptr_t LParam);
  TSRSystemMixerDevice FDevice;
  std::unique_ptr<Winmmmixer::TMixerNotifyWindow> FWindow;
  void* FHandle = nullptr;
  int32_t FMixerId = -1;
  bool FNotifying = false;
  std::string FManufacturer;
  uint32_t FDriverVersion = 0;
  uint16_t FProductId = 0;
  std::string FProductName;
  uint32_t FDestinationCount = 0;
  std::vector<std::unique_ptr<TSRSystemMixerLine>> FLines;
  // The pins outlive the items that own places in them.
  std::unique_ptr<TSRSystemMixerControlPinGroups> FControlPinGroups;
  std::unique_ptr<TSRSystemMixerControlGroups> FControlGroups;
};

namespace Srsystemmixer {
void RegisterPkg();
void UnregisterPkg();
}  // namespace Srsystemmixer

}  // namespace Quorvel
