// TSRVSTHost: loads one VST 2 plug-in library, opens it, forwards dispatcher
// calls to it, answers its calls back into the host, and runs audio through
// it. One mono input pin per plug-in input channel and one mono output pin
// per plug-in output channel; blocks of BufferSize samples (default 256).
//
// Threads: properties, Open/Close and the dispatch helpers are called on the
// main thread; audio arrives on whatever thread drives the input pins and is
// processed there, one block at a time under the component lock. The plug-in
// may call back on any thread.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "frame/Srbasicmultiinput.h"
#include "frame/Wbbuffers.h"
#include "frame/Wbset.h"
#include "platform/Library.h"
#include "vst2/Srvsteffectintf.h"

namespace Quorvel {

// Host capabilities, bit number = position.
enum class TSRVSTHostSupportsFlag {
  vsthsSendVstEvents, vsthsSendVstMidiEvent, vsthsSendVstTimeInfo, vsthsReceiveVstEvents,
  vsthsReceiveVstMidiEvent, vsthsReceiveVstTimeInfo, vsthsReportConnectionChanges, vsthsAcceptIOChanges,
  vsthsSizeWindow, vsthsAsyncProcessing, vsthsOffline, vsthsSupplyIdle, vsthsSupportShell,
  vsthsOpenFileSelector, vsthsCloseFileSelector, vsthsEditFile, vsthsShellCategory, vsthsStartStopProcess
};
using TSRVSTHostSupports = TSet<TSRVSTHostSupportsFlag>;
constexpr uint32_t kDefaultHostSupportsMask = 0x37FFF;  // all but vsthsEditFile

enum class TSRVSTHostLanguage {
  vstlLangUnknown, vstlLangEnglish, vstlLangGerman, vstlLangFrench, vstlLangItalian, vstlLangSpanish,
  vstlLangJapanese
};

// Plug-in capabilities as GetPlugInSuports reports them.
enum class TSRVSTPlugInSuportFlag {
  vstpsHasClip, vstpsHasVu, vstpsCanMono, vstpsCanReplacing, vstpsProgramChunks, vstpsIsSynth,
  vstpsNoSoundInStop, vstpsExtIsAsync, vstpsExtHasBuffer, vstpsCanDoubleReplacing, vstpsSendVstEvents,
  vstpsSendVstMidiEvent, vstpsReceiveVstEvents, vstpsReceiveVstMidiEvent, vstpsReceiveVstTimeInfo,
  vstpsOffline, vstpsMidiProgramNames, vstpsBypass
};
using TSRVSTPlugInSuports = TSet<TSRVSTPlugInSuportFlag>;

enum class TSRVSTPrecision { vstp32, vstp64 };
enum class TSRVSTPanLawType { vstkCurrent, vstkLinearPanLaw, vstkEqualPowerPanLaw };

// The capability names GetMasterCanDo compares with, in flag order.
extern const char* const kHostCanDoNames[18];

class TSRVSTHost;
using TSRVSTEditEvent = std::function<void(TSRVSTHost* Sender, int32_t Index, bool& Handled)>;
using TSRVSTEventsEvent = std::function<void(TSRVSTHost* Sender, const TVstEvents& Events)>;

class TSRVSTHost : public TSRBasicMultiInput {
 public:
  explicit TSRVSTHost(TWBComponent* Owner = nullptr);
  ~TSRVSTHost() override;

  // ---- library and effect life [main thread] ----
  std::string GetFileName() const;
  // Closes the current plug-in and re-reads the new file's parameters and
  // pins; a host that was closed stays closed. Change it only while no
  // stream runs through the host.
  void SetFileName(const std::string& Value);
  // Loads (when needed) and opens the plug-in; true when it is open.
  bool Open();
  // Sends effClose and unloads; safe when nothing is loaded.
  void Close();
  bool LoadPlugIn(const std::string& FileName);
  bool GetOpened() const;           // [any thread]
  PVSTEffect GetEffect() const;     // [any thread] nullptr when closed

  // ---- dispatch ----
  // [main thread, or the audio thread for process-time opcodes] The one path
  // to the plug-in's dispatcher: resets the floating-point control word and
  // answers the result truncated to 32 bits; 0 when closed.
  int32_t VstDispatch(TDispatcherOpcode Opcode, int32_t Index = 0, int32_t Value = 0, void* Ptr = nullptr,
                      float Opt = 0.0f);
  int32_t PlugInDispatch(int32_t Opcode, int32_t Index = 0, int32_t Value = 0, void* Ptr = nullptr,
                         float Opt = 0.0f);
  int32_t Identify();

  // ---- what the plug-in is [main thread] ----
  int32_t GetNumInputs() const;
  int32_t GetNumOutputs() const;
  int32_t GetNumParams() const;
  int32_t GetNumPrograms() const;
  int32_t GetUniqueID() const;
  int32_t GetVersion() const;
  int32_t GetInitialDelay() const;
  TEffFlags GetEffectFlags() const;
  TSRVSTPlugInSuports GetPlugInSuports();
  std::string GetEffectName();
  std::string GetVendorString();
  std::string GetProductString();
  int32_t GetVendorVersion();
  int32_t GetVstVersion();
  int32_t GetPlugCategory();
  int32_t GetTailSize();
  // The plug-in's own answer to effCanDo: 1 yes, -1 no, 0 don't know.
  int32_t PlugInCanDo(const std::string& Text);
  std::string GetParameterName(int32_t Index);
  std::string GetParameterLabel(int32_t Index);
  std::string GetParameterDisplay(int32_t Index);
  float GetParameter(int32_t Index);   // [any thread] 0 when out of range
  void SetParameter(int32_t Index, float Value);  // [any thread] ignored when out of range
  bool CanBeAutomated(int32_t Index);
  int32_t GetProgram();
  void SetProgram(int32_t Index);      // ignored when out of range
  std::string GetProgramName();        // current program
  std::string GetProgramNameIndexed(int32_t Index);
  // Parameter names as read when the plug-in was opened.
  const std::vector<std::string>& GetParameterNames() const { return FParamNames; }

  // ---- host identity and answers ----
  int32_t GetHostVstVersion() const;
  void SetHostVstVersion(int32_t Value);
  std::string GetHostVendorString() const;
  void SetHostVendorString(const std::string& Value);
  std::string GetHostProductString() const;
  void SetHostProductString(const std::string& Value);
  int32_t GetHostVendorVersion() const;
  void SetHostVendorVersion(int32_t Value);
  TSRVSTHostLanguage GetHostLanguage() const;
  void SetHostLanguage(TSRVSTHostLanguage Value);
  TSRVSTHostSupports GetHostSuports() const;
  void SetHostSuports(TSRVSTHostSupports Value);
  float GetHostTempo() const;          // beats per minute (default 120)
  void SetHostTempo(float Value);
  int32_t GetNumberAutomatable() const;
  void SetNumberAutomatable(int32_t Value);
  int32_t GetParameterQuantization(int32_t Value = 0) const;
  void SetParameterQuantization(int32_t Value);
  bool GetAutoIdle() const;
  void SetAutoIdle(bool Value);
  int32_t GetInputLatency() const;
  void SetInputLatency(int32_t Value);
  int32_t GetOutputLatency() const;
  void SetOutputLatency(int32_t Value);
  // Whether the host claims the named capability (exact, case-sensitive).
  bool GetMasterCanDo(const std::string& Text) const;

  // ---- processing settings [main thread] ----
  TSRVSTPrecision GetPrecision() const;
  void SetPrecision(TSRVSTPrecision Value);
  TSRVSTPanLawType GetPanLawType() const;
  void SetPanLawType(TSRVSTPanLawType Value);
  bool GetBypass() const;
  void SetBypass(bool Value);
  // The block size the plug-in is told (the frame's buffer size).
  int32_t GetBlockSize() const { return static_cast<int32_t>(GetBufferSize()); }
  // [any thread] Output samples that were NaN or infinite (sent as 0 or full scale).
  uint64_t GetNonFiniteCount() const { return FNonFinite.load(std::memory_order_relaxed); }
  // Set at stream start when the plug-in accepted 64-bit processing.
  bool GetDoublePrecision() const;
  // Both send effMainsChanged with value 1.
  void Resume();
  void Suspend();
  // Idles the plug-in's editor, when one is open.
  void Idle();
  // [audio thread, before the block] MIDI and other events for the next block.
  int32_t ProcessEvents(const TVstEvents& Events);

  // The host's time record. The plug-in reads it through audioMasterGetTime.
  PVstTimeInfo GetVstTimeInfoPtr() const { return FVstTimeInfo; }
  // Copies the fields of Info named by Flags into the time record
  // (the transport and validity flags are replaced by Flags).
  void SetTimeInfo(TVstTimeInfoFlags Flags, const TVstTimeInfo* Info);
  double GetOutputSampleRate() const;  // what the plug-in asked for with audioMasterSetOutputSampleRate
  bool GetWantsMidi() const;           // the plug-in called audioMasterWantMidi
  // Whether pin Index (input when Input) is connected.
  bool GetIsPinConnected(int32_t Index, bool Input);
  // The folder of the loaded library.
  std::string GetMasterGetDirectory() const;

  // ---- events ----
  TWBNotifyEvent OnLoaded;
  TWBNotifyEvent OnNeedIdle;
  TWBNotifyEvent OnUpdateDisplay;
  TSRVSTEditEvent OnBeginEdit;
  TSRVSTEditEvent OnEndEdit;
  TWBNotifyEvent OnIOChanged;
  // Events the plug-in sends to the host (audioMasterProcessEvents).
  TSRVSTEventsEvent OnPlugInEvents;
  // Editor resize requests (width, height) the editor window honours.
  std::function<void(TSRVSTHost* Sender, int32_t Width, int32_t Height)> OnSizeWindow;

  // The audioMaster callback handed to every plug-in's entry point.
  static intptr_t HostCallback(PVSTEffect Effect, int32_t Opcode, int32_t Index, intptr_t Value, void* Ptr,
                               float Opt) noexcept;

 protected:
  void StreamStarted() override;
  void CalculateSendOutput() override;
  void IntStop() override;
  TPWBasicPin* CreateInputPin(size_t Index) override;
  TPWBasicPin* CreateOutputPin(size_t Index) override;

  // Answer of the host callback for this host (32 bits, before sign extension).
  virtual int32_t HandleCallback(PVSTEffect Effect, int32_t Opcode, int32_t Index, intptr_t Value, void* Ptr,
                                 float Opt);
  void FileNameChanged();
  bool IntOpen();
  void PopulateParams();
  void PopulatePinNames();
  void UpdateBypass();
  void UpdatePanLawType();
  void DoMasterAutomate(int32_t Index, int32_t Value) {}
  void DoMasterIdle();
  void DoWantMidi();
  void DoIOChanged(PVSTEffect Effect);
  void DoNeedIdle();
  void DoSizeWindow(int32_t Width, int32_t Height);
  void DoUpdateDisplay();
  int32_t DoBeginEdit(int32_t Index);
  int32_t DoEndEdit(int32_t Index);
  int32_t DoOpenFileSelector(void* Ptr) { return 0; }
  int32_t DoCloseFileSelector(void* Ptr) { return 0; }
  void DoOpenWindow(void* Ptr) {}
  void DoCloseWindow(void* Ptr) {}
  void SetOutputSampleRate(float Value);
  int32_t GetOutputSpeakerArrangement() const { return 0; }
  int32_t GetTempoAnswer() const;

 private:
  std::string GetEffectString(TDispatcherOpcode Opcode, int32_t Index, size_t Room);
  void ProcessBlock(size_t Samples);

  std::string FFileName;
  Platform::TModuleHandle FModule = nullptr;
  TMainProc FEntry = nullptr;
  std::atomic<PVSTEffect> FEffect{nullptr};

  int32_t FHostVstVersion = 2400;
  std::string FHostVendorString = "Quorvel";
  std::string FHostProductString = "Quorvel VST Host";
  int32_t FHostVendorVersion = 1;
  TSRVSTHostLanguage FHostLanguage = TSRVSTHostLanguage::vstlLangEnglish;
  TSRVSTHostSupports FHostSuports = TSRVSTHostSupports::FromMask(kDefaultHostSupportsMask);
  float FHostTempo = 120.0f;
  int32_t FNumberAutomatable = 0;
  int32_t FParameterQuantization = 0;
  bool FAutoIdle = false;
  int32_t FInputLatency = 0;
  int32_t FOutputLatency = 0;
  float FOutputSampleRate = 0.0f;
  std::atomic<bool> FWantMidi{false};

  TSRVSTPrecision FPrecision = TSRVSTPrecision::vstp32;
  TSRVSTPanLawType FPanLawType = TSRVSTPanLawType::vstkCurrent;
  bool FBypass = false;
  bool FDoublePrecision = false;

  std::vector<std::string> FParamNames;

  // Per-channel scratch of the running stream (sized at stream start).
  std::vector<TRef<TWBBlockBuffer>> FInBlocks, FOutBlocks;
  std::vector<void*> FInAddrs, FOutAddrs;
  size_t FStreamBlock = 0;

  std::atomic<uint64_t> FNonFinite{0};
  PVstTimeInfo FVstTimeInfo = nullptr;  // below 2 GB when the system allows
  bool FTimeInfoLow = false;
};

}  // namespace Quorvel
