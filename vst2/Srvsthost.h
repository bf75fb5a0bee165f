// TSRVSTHost: loads one VST 2 plug-in library, opens it, forwards dispatcher
// calls to it, answers its calls back into the host, and runs audio through
// it. One mono input pin per plug-in input channel and one mono output pin
// per plug-in output channel; blocks of BufferSize samples (default 256).
//
// Threads: properties, Open/Close and the dispatch helpers are called on the
// main thread; audio arrives on whatever thread drives the input pins and is
// processed there, one block at a time under the component lock. The plug-in
// may call back on any thread: the callback never waits for the component
// lock (only audioMasterVersion reads under it), so a plug-in may call back
// from a thread of its own while the host holds the lock and waits for the
// plug-in. The values it answers are published atomically; the host's texts
// sit behind a small lock that is never held across a call into the plug-in.
//
// A stream through the host:
//  1. Stream start: Open; the channel arrays are sized to the plug-in's
//     declared counts at that moment (checked, at most kMaxPlugInChannels);
//     precision, pan law, sample rate and block size are sent; when enabled,
//     effMainsChanged(1).
//  2. Each block: when disabled, or bypassed with a plug-in that does not
//     bypass itself, inputs pass to outputs unchanged; otherwise the plug-in
//     processes. Enabling mid-stream sends effMainsChanged(1) before the next
//     processed block. A plug-in that declares more channels mid-stream
//     (audioMasterIOChanged) gets stand-in channels for the new ones until
//     the next stream start.
//  3. Stream stop: the transport stops; the arrays stay until the next start.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "frame/Srbasicmultiinput.h"
#include "frame/Wbbuffers.h"
#include "frame/Wbset.h"
#include "frame/Wbstreams.h"
#include "platform/Library.h"
#include "vst2/Srvsteffectintf.h"
#include "vst2/Srvsthostparameters.h"

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

// The most input or output channels a plug-in may declare. Counts outside
// 0..kMaxPlugInChannels are refused when the plug-in is loaded or opened.
constexpr int32_t kMaxPlugInChannels = 4096;

class TSRVSTHost;
class TSRVSTEditor;
using TSRVSTEditEvent = std::function<void(TSRVSTHost* Sender, int32_t Index, bool& Handled)>;
using TSRVSTEventsEvent = std::function<void(TSRVSTHost* Sender, const TVstEvents& Events)>;

// One program in the parameter form of the preset and bank files: the
// header with every field big-endian, and the values as big-endian 32-bit
// floats, ready to be written.
struct TSRVSTPresetRecord {
  TFXPreset Header{};
  std::vector<uint8_t> Params;  // 4 x Header's numParams bytes
};

class TSRVSTHost : public TSRBasicMultiInput {
 public:
  // The class's published properties (frame/Wbpersistence.h).
  static const TWBClassInfo& ClassInfo();
  const TWBClassInfo& GetClassInfo() const override { return ClassInfo(); }

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
  // Opens the plug-in at FileName with a single load and a single effOpen:
  // the host closes a different plug-in first, takes the name without the
  // re-read that SetFileName makes, and opens. True when it is open.
  bool Open(const std::string& FileName);
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

  // ---- parameter and program objects [main thread] ----
  // Rebuilt each time the plug-in opens; empty before.
  TSRVSTParameters& GetParameters() { return FParameters; }
  TSRVSTProgram& GetPrograms() { return FPrograms; }
  int32_t GetCurrentProgramNumber();                       // effGetProgram
  void SetCurrentProgramNumber(int32_t Value);             // effSetProgram
  std::string GetCurrentProgramName();                     // effGetProgramName
  void SetCurrentProgramName(const std::string& Value);    // effSetProgramName
  // effGetProgramNameIndexed; when the plug-in does not answer it, the host
  // switches to program Index, reads its name and switches back. "" for an
  // index outside the plug-in's programs.
  std::string GetProgramNameByIndex(int32_t Index);
  // Selects Program and collects it in the parameter form of the files:
  // ByteSize counts the 60-byte header the writers write, fxVersion is the
  // effect's Version, numParams its parameter count (at most
  // kMaxPlugInParameters), the name is cut to 26 characters.
  TSRVSTPresetRecord GetPreset(int32_t Program);

  // ---- preset and bank files [main thread] ----
  // The chunk form when the plug-in keeps its programs in chunks
  // (effFlagsProgramChunks), else one float per parameter. Loading takes the
  // form from the file (its 10th byte) and checks only the plug-in's
  // identifier; a file for another plug-in is reported and nothing of it is
  // applied. A file too short for its header applies nothing. Values go
  // through TSRVSTParameter::SetValue: only automatable parameters take them.
  // A bank's programs beyond the plug-in's count are not applied. Nothing is
  // done when the plug-in cannot be opened.
  void SavePreset(const std::string& FileName);
  void SavePreset(TWBStream& Stream);
  void LoadPreset(const std::string& FileName);
  void LoadPreset(TWBStream& Stream);
  void SaveBank(const std::string& FileName);
  void SaveBank(TWBStream& Stream);
  void LoadBank(const std::string& FileName);
  void LoadBank(TWBStream& Stream);

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
  // When set, audioMasterNeedIdle gives the plug-in its idle call (Idle) at once.
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
  // [main thread] The sample rate of the component's audio format until a
  // stream brings its own: what audioMasterGetSampleRate answers and what
  // is sent at open, so set it before Open to have the plug-in see it from
  // its first call. Ignored while a stream runs and for values that are not
  // positive and finite. An open plug-in is told at once (effSetSampleRate).
  void SetSampleRate(double Value);
  double GetSampleRate() const;        // [any thread]
  // [main thread] Samples per block (the frame's buffer size), answered to
  // audioMasterGetBlockSize and sent at open and at stream start. An open
  // plug-in is told at once (effSetBlockSize) while no stream runs.
  void SetBufferSize(size_t Value);
  // [any thread] The block size the plug-in is told.
  int32_t GetBlockSize() const { return FBlockSize.load(std::memory_order_relaxed); }
  // [any thread] Output samples that were NaN or infinite (sent as 0 or full scale).
  uint64_t GetNonFiniteCount() const { return FNonFinite.load(std::memory_order_relaxed); }
  // Set at stream start when the plug-in accepted 64-bit processing.
  bool GetDoublePrecision() const;
  // Both send effMainsChanged with value 1.
  void Resume();
  void Suspend();
  // Gives the plug-in its idle call (effIdle), as plug-ins that ask with
  // audioMasterNeedIdle expect; a call made from inside it is ignored.
  void Idle();
  // ---- editor [main thread] ----
  // Each does nothing when no plug-in is loaded. The editor counts as open
  // once effEditOpen answered non-zero, until EditClose.
  // effEditOpen with the native window (HWND, X window id) in Ptr.
  bool EditOpen(void* ParentHandle);
  void EditClose();                    // effEditClose
  void EditIdle();                     // effEditIdle, only while open
  void EditActivate();                 // effEditTop
  void EditDeactivate();               // effEditSleep
  bool GetEditorOpen() const { return FEditorOpen.load(); }  // [any thread]
  // effEditGetRect: true only when the plug-in answered non-zero and filled
  // the rectangle pointer.
  bool GetEditorRectangle(TERect& Rect);
  // The editor window (shows the plug-in's interface; see Srvsthosteditor.h).
  TSRVSTEditor& GetEditor();

  // [audio thread, before the block] MIDI and other events for the next block.
  int32_t ProcessEvents(const TVstEvents& Events);

  // The host's time record. The plug-in reads it through audioMasterGetTime.
  PVstTimeInfo GetVstTimeInfoPtr() const { return FVstTimeInfo; }
  // [any thread] Copies the fields of Info named by Flags into the time
  // record (the transport and validity flags are replaced by Flags): at once
  // when the component lock is free or held by the caller, else before the
  // next block.
  void SetTimeInfo(TVstTimeInfoFlags Flags, const TVstTimeInfo* Info);
  double GetOutputSampleRate() const;  // what the plug-in asked for with audioMasterSetOutputSampleRate
  bool GetWantsMidi() const;           // the plug-in called audioMasterWantMidi
  // Whether pin Index (input when Input) is connected.
  bool GetIsPinConnected(int32_t Index, bool Input);
  // [any thread] The folder of the loaded library.
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
  void EnabledChanged() override;
  TPWBasicPin* CreateInputPin(size_t Index) override;
  TPWBasicPin* CreateOutputPin(size_t Index) override;

  // Answer of the host callback for this host (32 bits, before sign extension).
  virtual int32_t HandleCallback(PVSTEffect Effect, int32_t Opcode, int32_t Index, intptr_t Value, void* Ptr,
                                 float Opt);
  void FileNameChanged();
  void Loaded() override;
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
  void DoOpenWindow(void* Ptr);
  void DoCloseWindow(void* Ptr);
  void SetOutputSampleRate(float Value);
  int32_t GetOutputSpeakerArrangement() const { return 0; }
  int32_t GetTempoAnswer() const;

 private:
  std::string GetEffectString(TDispatcherOpcode Opcode, int32_t Index);
  void ProcessBlock(size_t Samples);
  void PassThrough();
  // The plug-in's declared channel counts, checked at full width; false with
  // the report's text and code when either is out of range.
  static bool CheckChannelCounts(PVSTEffect Effect, std::string& Message, int32_t& Code);
  // [holding the lock] effMainsChanged(1) once per stream.
  void ResumeStream();
  // [holding the lock] Copies a time update that arrived while the lock was
  // busy; never waits.
  void ApplyPendingTime();
  void SetFileNameField(const std::string& Value);
  // The parameter-form values of a preset file, applied in order.
  void ApplyParameterValues(TWBStream& Stream, int32_t Count);

  // FFileName is written under both the component lock and FTextLock and
  // read under either; FTextLock also guards the host's texts. It is never
  // held across a call into the plug-in.
  mutable std::mutex FTextLock;
  std::string FFileName;
  std::string FHostVendorString = "Quorvel";
  std::string FHostProductString = "Quorvel VST Host";
  Platform::TModuleHandle FModule = nullptr;
  TMainProc FEntry = nullptr;
  std::atomic<PVSTEffect> FEffect{nullptr};

  // Answers of the host callback, published atomically.
  int32_t FHostVstVersion = 2400;  // read under the component lock
  std::atomic<int32_t> FHostVendorVersion{1};
  std::atomic<TSRVSTHostLanguage> FHostLanguage{TSRVSTHostLanguage::vstlLangEnglish};
  std::atomic<uint32_t> FHostSuports{kDefaultHostSupportsMask};
  std::atomic<float> FHostTempo{120.0f};
  std::atomic<int32_t> FNumberAutomatable{0};
  std::atomic<int32_t> FParameterQuantization{0};
  std::atomic<bool> FAutoIdle{false};
  std::atomic<int32_t> FInputLatency{0};
  std::atomic<int32_t> FOutputLatency{0};
  std::atomic<float> FOutputSampleRate{0.0f};
  std::atomic<int32_t> FBlockSize{256};
  std::atomic<bool> FWantMidi{false};
  std::atomic<bool> FIdling{false};
  std::atomic<bool> FEditorOpen{false};
  std::atomic<bool> FEditIdling{false};
  std::unique_ptr<TSRVSTEditor> FEditor;

  TSRVSTPrecision FPrecision = TSRVSTPrecision::vstp32;
  TSRVSTPanLawType FPanLawType = TSRVSTPanLawType::vstkCurrent;
  bool FBypass = false;
  // The plug-in answered 1 to effCanDo("bypass") and is sent effSetBypass;
  // otherwise a bypassed host passes the audio through itself.
  bool FPlugInBypasses = false;

  std::vector<std::string> FParamNames;
  TSRVSTParameters FParameters{*this};
  TSRVSTProgram FPrograms{*this};

  // Run-time state of the stream, under the component lock.
  struct TStreamState {
    size_t Block = 0;                 // samples per channel block
    size_t Inputs = 0, Outputs = 0;   // plug-in channels at stream start
    bool Usable = false;              // the counts at stream start were in range
    bool MainsOn = false;             // effMainsChanged(1) was sent for this stream
    bool Double = false;              // the plug-in accepted 64-bit processing
    std::vector<TRef<TWBBlockBuffer>> InBlocks, OutBlocks;
    // Stand-ins for channels declared after the start: silence in, discarded out.
    TRef<TWBBlockBuffer> Silence, Discard;
    // What the process routine receives: kMaxPlugInChannels entries each.
    std::vector<void*> InAddrs, OutAddrs;
  } FStream;

  // A time update waiting for the lock (FTimeLock guards only this copy).
  struct TPendingTime {
    uint32_t Fields = 0;  // union of the flags of the updates held
    TVstTimeInfoFlags Flags;
    TVstTimeInfo Info{};
  };
  std::mutex FTimeLock;
  TPendingTime FPendingTime;
  std::atomic<bool> FTimePending{false};

  std::atomic<uint64_t> FNonFinite{0};
  PVstTimeInfo FVstTimeInfo = nullptr;  // below 2 GB when the system allows
  bool FTimeInfoLow = false;
};

// The unit's registration entry: hands TSRVSTHost to the component catalogue.
namespace Srvsthost {
void RegisterPkg();
void UnregisterPkg();
}  // namespace Srvsthost

}  // namespace Quorvel
