// TSRVST3Host: hosts one class of one VST 3 module. Loads the module, takes
// its factory and the factory's class list, creates the chosen class's
// component, finds and connects its edit controller, sets it up for
// processing and activates it; Close undoes all of it in reverse.
//
// Opening runs in stages:
//  1. IntOpenNoID: load the module, run its entry function, take the factory
//     and its information. Nothing is instantiated; the class list and the
//     choice of a class need only this stage.
//  2. IntOpenID: stage 1, then create the chosen class's component,
//     initialize it with the host context and find its controller (the
//     component itself, the class it names, or none).
//  3. Open: stage 2, then give the controller the component handler, connect
//     the two connection points, hand the component's state to the
//     controller, set up processing and activate the component.
// Close: disconnect, detach and terminate the controller; deactivate and
// terminate an activated component; release every interface; run the
// module's exit function; unload it.
//
// Audio: one input pin per audio input bus and one output pin per audio
// output bus, named after the buses when the host opens; each pin carries all
// of its bus's channels. A stream through the host:
//  1. Stream start (StreamStarted): Open; the working buffer from the format;
//     setupProcessing and setActive(true) once more; the bus-buffers arrays
//     and one block of 8 x BufferSize bytes per bus channel (room for 64-bit
//     samples whatever the precision); setProcessing(true), twice.
//  2. Each block (CalculateSendOutput, under the lock): disabled, input i
//     passes to output i; otherwise each input bus gets its pin's samples
//     divided by 2^bits (zeros in channels the stream lacks), process runs,
//     and each output bus goes out on its pin multiplied by 2^bits. A failed
//     process leaves the block unsent. Nothing is allocated per block.
//  3. Stream stop (IntStop): setProcessing(false), twice; the blocks go.
//
// Failing plug-in calls are reported through Check: OnError with the
// message "<text> - <result name>" and the result, then EWBException unless
// handled. Threads: everything here is [main thread] except the stream
// operations, which run [audio thread] on the thread that drives the pins.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "frame/Srbasicmultiinput.h"
#include "frame/Wbbuffers.h"
#include "frame/Wbset.h"
#include "platform/Library.h"
#include "vst3/Srvst3hostobjects.h"
#include "vst3/Vst3hostintf.h"

namespace Quorvel {

class TSRVST3Host;
// The editor object (vst2/Srvsthosteditor.h) and what it asks of a host.
class TSRVSTEditor;
class TSREditorTarget;

// The factory's flags, member N for the published flag listed at N.
enum class TSRVST3FactoryFlag {
  vst3ffClassesDiscardable,       // published 1
  vst3ffLicenseCheck,             // published 2
  vst3ffComponentNonDiscardable,  // published 8
  vst3ffUnicode                   // published 16
};
using TSRVST3FactoryFlags = TSet<TSRVST3FactoryFlag>;

// A class's flags from the extended class record, bit N as member N; the
// bits without a name here stay in the set as they came.
enum class TSRVST3ClassFlag {
  vst3cfDistributable,        // published 1
  vst3cfSimpleModeSupported   // published 2
};
using TSRVST3ClassFlags = TSet<TSRVST3ClassFlag>;

struct TSRVST3FactoryInfo {
  std::string Vendor;
  std::string URL;
  std::string EMail;
  TSRVST3FactoryFlags Flags;
};

// One class of the factory, from the published class record.
class TSRVST3ClassInfo {
 public:
  TSRVST3ClassInfo() = default;  // no class: the null identifier
  explicit TSRVST3ClassInfo(const Vst3hostintf::TVST3ClassInfo& Info);
  virtual ~TSRVST3ClassInfo() = default;
  const TGUID& GetID() const { return FID; }
  int32_t GetCardinality() const { return FCardinality; }
  const std::string& GetCategory() const { return FCategory; }
  const std::string& GetName() const { return FName; }
  // Empty for a plain class record; the extended record's values otherwise.
  virtual std::string GetVendor() const { return {}; }
  virtual std::string GetVersion() const { return {}; }
  virtual std::string GetSdkVersion() const { return {}; }
  virtual std::string GetSubCategories() const { return {}; }
  virtual TSRVST3ClassFlags GetFlags() const { return {}; }

 protected:
  TGUID FID = Vst3hostintf::kNullUID;
  int32_t FCardinality = 0;
  std::string FCategory;
  std::string FName;
};

// A class from the extended class record.
class TSRVST3ProcessorInfo2 final : public TSRVST3ClassInfo {
 public:
  explicit TSRVST3ProcessorInfo2(const Vst3hostintf::TVST3ClassInfo2& Info);
  std::string GetVendor() const override { return FVendor; }
  std::string GetVersion() const override { return FVersion; }
  std::string GetSdkVersion() const override { return FSdkVersion; }
  std::string GetSubCategories() const override { return FSubCategories; }
  TSRVST3ClassFlags GetFlags() const override { return TSRVST3ClassFlags::FromMask(FFlags); }

 private:
  uint32_t FFlags;
  std::string FSubCategories, FVendor, FVersion, FSdkVersion;
};

using TSRVST3ClassInfoRef = std::shared_ptr<const TSRVST3ClassInfo>;

// The factory's classes, read lazily: the count when first asked, each
// entry when first asked, kept until Clear (Close clears them).
class TSRVST3ClassInfos {
 public:
  explicit TSRVST3ClassInfos(TSRVST3Host& Host) : FHost(Host) {}
  int GetCount();
  // Entry Index, or nullptr when the factory failed to describe it (which
  // it reports). An index outside the list raises EWBException.
  TSRVST3ClassInfoRef GetItem(int Index);
  void Clear();

 private:
  TSRVST3Host& FHost;
  bool FCreated = false;
  std::vector<TSRVST3ClassInfoRef> FItems;
};

// The chosen class. Choosing by ID, name or class information opens the
// module (stage 1) to walk the class list, then closes and, when the host
// was open, opens again with the new class.
class TSRVST3Processor {
 public:
  explicit TSRVST3Processor(TSRVST3Host& Host) : FHost(Host) {}
  TGUID GetID() const;
  std::string GetName() const;
  TSRVST3ClassInfoRef GetClassInfo() const { return FClassInfo; }
  // Whether a class is chosen.
  bool GetAvailable() const { return FClassInfo && !Vst3hostintf::IsNullUID(FClassInfo->GetID()); }
  void SetID(const TGUID& Value);
  void SetName(const std::string& Value);
  void SetClassInfo(const TSRVST3ClassInfoRef& Value);

 private:
  template <typename TMatch>
  void Choose(TMatch Match);
  TSRVST3Host& FHost;
  TSRVST3ClassInfoRef FClassInfo;
};

enum class TSRVST3SampleSize { vst3ss32, vst3ss64 };

// A parameter of the controller, as the host reads it when opening.
struct TSRVST3ParameterInfo {
  uint32_t ID = 0;
  std::string Title;
  std::string ShortTitle;
  std::string Units;
  int32_t StepCount = 0;
  double DefaultNormalizedValue = 0.0;
  int32_t UnitID = 0;
  int32_t Flags = 0;
};

// A bus of the component.
struct TSRVST3BusInfo {
  int32_t MediaType = 0;
  int32_t Direction = 0;
  int32_t ChannelCount = 0;
  std::string Name;
  int32_t BusType = 0;
  uint32_t Flags = 0;
};

class TSRVST3Host : public TSRBasicMultiInput {
 public:
  static const TWBClassInfo& ClassInfo();
  const TWBClassInfo& GetClassInfo() const override { return ClassInfo(); }

  explicit TSRVST3Host(TWBComponent* Owner = nullptr);
  ~TSRVST3Host() override;

  // ---- module and class [main thread] ----
  std::string GetFileName() const;
  // Closes, picks the module's first class (whatever its category) and
  // opens again when the host was open.
  void SetFileName(const std::string& Value);
  // Loads the module's library (a bundle folder's binary for this system);
  // true at once when one is loaded.
  bool LoadPlugIn(const std::string& FileName);
  bool IntOpenNoID();
  bool IntOpenID();
  bool Open();
  void Close();
  bool GetIntOpened() const { return FState.Opened; }
  bool FillFactoryInfo();
  const TSRVST3FactoryInfo& GetFactoryInfo() const { return FFactoryInfo; }
  TSRVST3ClassInfos& GetClassInfos() { return FClassInfos; }
  TSRVST3Processor& GetProcessor() { return FProcessor; }

  // ---- reporting [main thread] ----
  // True for a result of 0; otherwise reports "<Text> - <result name>" with
  // the result (in its Windows value) and answers false.
  bool Check(Vst3hostintf::TResult ModuleResult, const std::string& Text);
  // The name Check gives a result (in its Windows value).
  static std::string ResultName(int32_t Result);

  // ---- what the plug-in is [main thread] ----
  Vst3hostintf::IComponent* GetComponent() const { return FComponent.Get(); }
  Vst3hostintf::IEditController* GetController() const { return FController.Get(); }
  Vst3hostintf::IEditController2* GetController2() const { return FController2.Get(); }
  Vst3hostintf::IAudioProcessor* GetAudioProcessor() const { return FAudioProcessor.Get(); }
  // The controller's editor view, made at Open (nullptr when it offers none).
  Vst3hostintf::IPlugView* GetView() const { return FView.Get(); }
  Vst3hostintf::IPluginFactory* GetFactory() const { return FFactory.Get(); }
  bool GetComponentCreated() const { return FState.ComponentCreated; }
  bool GetConnected() const { return FState.Connected; }
  bool GetActive() const { return FState.Active; }
  // The sample size chosen for processing at the last Open or stream start.
  bool GetDoublePrecision() const { return FState.Double; }
  // The component's buses (0 when nothing is created).
  int32_t GetBusCount(Vst3hostintf::TMediaTypes Type, Vst3hostintf::TBusDirections Direction);
  bool GetBusInfo(Vst3hostintf::TMediaTypes Type, Vst3hostintf::TBusDirections Direction, int32_t Index,
                  TSRVST3BusInfo& Info);

  // ---- parameters of the controller, read at Open [main thread] ----
  int32_t GetParameterCount() const { return static_cast<int32_t>(FParameters.size()); }
  const TSRVST3ParameterInfo& GetParameterInfo(int32_t Index) const;  // raises for an index out of range
  // Normalized value of parameter ID (0 without a controller).
  double GetParameterValue(uint32_t ID);
  void SetParameterValue(uint32_t ID, double Value);
  // The controller's text for a normalized value of parameter ID.
  std::string GetParameterDisplay(uint32_t ID, double Value);

  // ---- host identity and settings [main thread] ----
  std::string GetHostName() const;
  void SetHostName(const std::string& Value);
  // [any thread] Where the host's name lies as 16-bit characters.
  const char16_t* GetHostNameAddress() const { return FHostName.c_str(); }
  TSRVST3SampleSize GetSampleSize() const { return FSampleSize; }
  void SetSampleSize(TSRVST3SampleSize Value);
  double GetSampleRate() const { return FFormat.GetSampleRate(); }
  void SetSampleRate(double Value);
  // The application's receiver of unit and program-list notifications
  // (not owned; nullptr for none).
  Vst3hostintf::IUnitHandler* GetUnitNotification() const { return FUnitNotification; }
  void SetUnitNotification(Vst3hostintf::IUnitHandler* Value) { FUnitNotification = Value; }
  Vst3hostobjects::TEventList* GetInputEvents() const { return FInputEvents.Get(); }
  Vst3hostobjects::TParameterChanges* GetInputParameterChanges() const { return FInputParameterChanges.Get(); }

  // Fired once the factory has been taken, before its information is read.
  TWBNotifyEvent OnLoaded;

  // The capacity of the input event list.
  static constexpr int32_t kInputEventCapacity = 50;

 protected:
  void FileNameChanged();
  // Called after the file or the chosen class changed, for derived classes
  // and forms that show them; the base does nothing.
  virtual void PropertiesChanged() {}
  void BuildParameterList();
  // One pin per audio bus, named after the bus ("Input N"/"Output N" when it
  // has no name).
  void PopulatePinNames();

  // ---- audio [audio thread, holding the lock] ----
  void StreamStarted() override;
  void CalculateSendOutput() override;
  void IntStop() override;

 private:
  friend class TSRVST3ClassInfos;
  friend class TSRVST3Processor;
  // The module's factory information into FFactoryInfo, without the lock.
  bool ReadFactoryInfo();

  std::string FFileName;
  std::u16string FHostName = u"Quorvel";
  TSRVST3SampleSize FSampleSize = TSRVST3SampleSize::vst3ss32;
  Platform::TModuleHandle FModule = nullptr;

  Vst3hostobjects::TVST3Ref<Vst3hostintf::IPluginFactory> FFactory;
  Vst3hostobjects::TVST3Ref<Vst3hostintf::IPluginFactory2> FFactory2;
  Vst3hostobjects::TVST3Ref<Vst3hostobjects::TVST3Notifications> FHostContext;
  Vst3hostobjects::TVST3Ref<Vst3hostintf::IComponentHandler> FComponentHandler;
  Vst3hostobjects::TVST3Ref<Vst3hostobjects::TParameterChanges> FInputParameterChanges;
  Vst3hostobjects::TVST3Ref<Vst3hostobjects::TEventList> FInputEvents;
  Vst3hostobjects::TVST3Ref<Vst3hostintf::IComponent> FComponent;
  Vst3hostobjects::TVST3Ref<Vst3hostintf::IEditController> FController;
  Vst3hostobjects::TVST3Ref<Vst3hostintf::IEditController2> FController2;
  Vst3hostobjects::TVST3Ref<Vst3hostintf::IAudioProcessor> FAudioProcessor;
  Vst3hostobjects::TVST3Ref<Vst3hostintf::IPlugView> FView;
  Vst3hostintf::IUnitHandler* FUnitNotification = nullptr;

  // Where opening stands, under the component lock.
  struct TOpenState {
    bool ComponentCreated = false;  // end of a successful IntOpenID
    bool Connected = false;         // component and controller points joined
    bool Active = false;            // setActive(true) succeeded
    bool Opened = false;            // end of a successful Open
    bool Double = false;            // 64-bit samples chosen at Open
  } FState;
  Vst3hostintf::TProcessSetup FProcessSetup{};
  Vst3hostintf::TVST3ProcessData FProcessData{};

  // The buses' sample blocks, built at stream start: one block per channel
  // and, parallel to them, the data addresses the bus record points at.
  struct TBusBlocks {
    std::vector<TRef<TWBBlockBuffer>> Blocks;
    std::vector<void*> Addresses;
  };
  // What every block of a stream uses, rebuilt at stream start only.
  struct TAudioState {
    bool Built = false;  // the bus arrays of this stream are in place
    bool Double = false;  // 64-bit samples in the blocks, fixed at stream start
    std::vector<Vst3hostintf::TVST3AudioBusBuffers> Inputs, Outputs;
    std::vector<TBusBlocks> InputBlocks, OutputBlocks;
  } FAudio;
  // [stream start] One direction's bus records, with a zeroed block per channel.
  void BuildBuses(Vst3hostintf::TBusDirections Direction, std::vector<Vst3hostintf::TVST3AudioBusBuffers>& Buses,
                  std::vector<TBusBlocks>& Blocks, size_t BlockBytes);

  TSRVST3FactoryInfo FFactoryInfo;
  TSRVST3ClassInfos FClassInfos{*this};
  TSRVST3Processor FProcessor{*this};
  std::vector<TSRVST3ParameterInfo> FParameters;

 public:
  // ---- preset files [main thread] ----
  // Saves the chosen class's component state, its controller's state (with a
  // controller) and MetaInfo as XML (when not empty) as a preset file; opens
  // the host first when needed. A failure reports "Can't save VST3 preset
  // file." (the file may then be incomplete).
  void SavePreset(const std::string& FileName, const std::string& MetaInfo = std::string());
  void SavePreset(TWBStream& Stream, const std::string& MetaInfo = std::string());
  // Reads a preset file into the component and controller. Reading never
  // succeeds as this host reads preset files: every file, valid or not,
  // reports "Can't load VST3 preset file.".
  void LoadPreset(const std::string& FileName);
  void LoadPreset(TWBStream& Stream);

  // ---- the editor view [main thread] ----
  // The editor object, made on first use: it shows the controller's view
  // the way it shows a VST 2 editor. Showing attaches the view to the window
  // (platform type "HWND" on Windows, "X11EmbedWindowID" elsewhere) after
  // giving it the host's frame, sized from getSize; hiding removes it.
  // The frame honours the view's resize requests by resizing the own form
  // and answering onSize, and offers the run loop X11 views need: their
  // descriptors and timers are served by the editor's idle timer. A module
  // without a view reports "Can't show the editor: the plug-in has no
  // editor view." when shown. Close hides the editor first.
  TSRVSTEditor& GetEditor();
  // Whether the view is attached to a window now.
  bool GetViewAttached() const;

 private:
  void HideEditor();
  // Shared pointers: their deleters are made where the types are complete.
  std::shared_ptr<TSREditorTarget> FEditorTarget;  // before FEditor: it outlives it
  std::shared_ptr<TSRVSTEditor> FEditor;
};

namespace Srvst3host {
void RegisterPkg();
void UnregisterPkg();
}  // namespace Srvst3host

}  // namespace Quorvel
