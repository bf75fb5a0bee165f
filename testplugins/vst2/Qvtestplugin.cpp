// The VST 2 test plug-in. One source, built into several variants that differ
// in their entry points, channel counts, flags and processing (see
// CMakeLists.txt): each is a real plug-in library that a host loads through
// its entry point. It processes deterministically, answers fixed values, calls
// the host back where plug-ins commonly do, and records every call it gets.
#include "testplugins/vst2/Qvtestplugin.h"

#include <algorithm>
#include <atomic>
#include <cfenv>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <limits>
#include <new>
#include <thread>
#include <vector>

#include "testplugins/vst2/Qveditorview.h"
#include "testplugins/vst2/Qvreadable.h"

#if defined(__x86_64__) || defined(_M_X64)
#include <xmmintrin.h>
#define QV_X86 1
#endif

#ifdef _WIN32
#define QV_EXPORT extern "C" __declspec(dllexport)
#else
#define QV_EXPORT extern "C" __attribute__((visibility("default")))
#endif

namespace Quorvel::Qvtestplugin {
namespace {

static_assert(sizeof(TQvTestRecord) == 152, "the record is shared with the tests");

enum class TVariant {
  Main, MainOnly, Both, NoEffect, Accumulating, Double, Null, NotAPlugin, Mono, Chunks,
  // As Main; their libraries come with parameter-structure descriptions
  // (a file beside the first, a resource in both on Windows).
  Described, DescribedResource,
  // As Main, with an editor that paints.
  Editor
};
constexpr TVariant kVariant = TVariant::QV_VARIANT;

constexpr bool kNull = kVariant == TVariant::Null;  // benchmarks: no records, no host calls
constexpr bool kDouble = kVariant == TVariant::Double;
constexpr bool kEditor = kVariant == TVariant::Editor;
constexpr int32_t kChannels = kVariant == TVariant::Mono ? 1 : 2;

int32_t UniqueIdFor(TQvTestEntry Entry) noexcept {
  switch (kVariant) {
    case TVariant::Both: return Entry == qeMain ? kQvTestUniqueIdMainEntry : kQvTestUniqueIdPluginMain;
    case TVariant::Accumulating: return kQvTestUniqueIdAccumulating;
    case TVariant::Double: return kQvTestUniqueIdDouble;
    case TVariant::Null: return kQvTestUniqueIdNull;
    case TVariant::Mono: return kQvTestUniqueIdMono;
    case TVariant::Chunks: return kQvTestUniqueIdChunks;
    case TVariant::Editor: return kQvTestUniqueIdEditor;
    default: return kQvTestUniqueId;
  }
}

TEffFlags VariantFlags() noexcept {
  TEffFlags Flags;
  if (kVariant != TVariant::Accumulating) Flags.Include(TEffFlag::effFlagsCanReplacing);
  if (kDouble) Flags.Include(TEffFlag::effFlagsCanDoubleReplacing);
  if (kVariant == TVariant::Chunks) Flags.Include(TEffFlag::effFlagsProgramChunks);
  if (kEditor) Flags.Include(TEffFlag::effFlagsHasEditor);
  return Flags;
}

// ---------------------------------------------------------------------------
// Knobs.

std::atomic<double> GFixedOutput{std::numeric_limits<double>::quiet_NaN()};
std::atomic<bool> GCallHostInProcess{true};
std::atomic<bool> GProgramNameIndexed{true};
std::atomic<int32_t> GProgramNameLength{kQvTestProgramNameLength};
// Declared values: kUnset leaves the variant's own.
constexpr int64_t kUnset = INT64_MIN;
std::atomic<int64_t> GInitialDelay{kUnset};
std::atomic<int32_t> GTailSize{kQvTestTailSize};
std::atomic<int64_t> GNumInputs{kUnset};
std::atomic<int64_t> GNumOutputs{kUnset};
std::atomic<int64_t> GNumPrograms{kUnset};
std::atomic<int32_t> GCanDoBypass{1};
std::atomic<bool> GCrashInProcess{false};
std::atomic<bool> GHasEditor{false};
std::atomic<int32_t> GVendor{0};
std::atomic<bool> GThreadedCallbacks{false};
std::atomic<bool> GDirtyFpu{false};
std::atomic<bool> GEmptyDisplay{false};
std::atomic<int32_t> GEditorWidth{kQvTestEditorWidth};
std::atomic<int32_t> GEditorHeight{kQvTestEditorHeight};
std::atomic<int64_t> GOpenWindow{kUnset};  // the Style asked for, once
std::atomic<bool> GCloseWindow{false};
// Entry-point calls running now.
std::atomic<int32_t> GEntriesRunning{0};
// Read through by "CrashInProcess"; never set.
int* volatile GNowhere = nullptr;

constexpr size_t kMaxDelayedChannels = 64;

// A 32-bit value of a knob, saturated.
int32_t Int32Of(double Value) noexcept {
  if (std::isnan(Value)) return 0;
  return static_cast<int32_t>(std::clamp(Value, -2147483648.0, 2147483647.0));
}
// The callback that the latest entry-point call received.
std::atomic<TAudioMasterCallbackFunc> GLastHost{nullptr};

// ---------------------------------------------------------------------------
// Records: preallocated; a call takes its slot with one atomic increment and
// publishes the record when it returns.

TQvTestRecord GRecords[kQvTestRecordCapacity];
std::atomic<uint8_t> GComplete[kQvTestRecordCapacity];
std::atomic<int32_t> GReserved{0};

uint32_t ThreadHash() noexcept {
  const uint64_t Hash = std::hash<std::thread::id>{}(std::this_thread::get_id());
  return static_cast<uint32_t>(Hash ^ (Hash >> 32));
}

// The calling thread's rounding mode as TQvTestRecord::Rounding reports it.
int32_t RoundingNow() noexcept {
  int32_t Mode = std::fegetround();
#if QV_X86
  Mode |= static_cast<int32_t>((_mm_getcsr() >> 13) & 3u) << 16;
#endif
  return Mode;
}

void CopyText(char* Dest, size_t Size, const char* Source) noexcept {
  size_t Length = 0;
  while (Length + 1 < Size && Source[Length]) ++Length;
  std::memcpy(Dest, Source, Length);
  Dest[Length] = 0;
}

// One call's record; a no-op when recording is off or the records are full.
class TRecorder {
 public:
  TRecorder(TQvTestRecordKind Kind, PVSTEffect Effect, int32_t Opcode, int32_t Index, int64_t Value,
            const void* Ptr, float Opt) noexcept {
    if (kNull || GReserved.load(std::memory_order_relaxed) >= kQvTestRecordCapacity) return;
    const int32_t Slot = GReserved.fetch_add(1, std::memory_order_relaxed);
    if (Slot >= kQvTestRecordCapacity) return;
    FSlot = Slot;
    FRecord = &GRecords[Slot];
    *FRecord = TQvTestRecord{};
    FRecord->Kind = Kind;
    FRecord->Opcode = Opcode;
    FRecord->Index = Index;
    FRecord->Value = Value;
    FRecord->Ptr = reinterpret_cast<uintptr_t>(Ptr);
    FRecord->Effect = reinterpret_cast<uintptr_t>(Effect);
    FRecord->Opt = Opt;
    FRecord->Thread = ThreadHash();
    FRecord->Rounding = RoundingNow();
  }
  ~TRecorder() { Commit(); }
  TRecorder(const TRecorder&) = delete;
  TRecorder& operator=(const TRecorder&) = delete;

  // nullptr when nothing is recorded.
  TQvTestRecord* Get() const noexcept { return FRecord; }
  void SetResult(int64_t Result) noexcept {
    if (FRecord) FRecord->Result = Result;
  }
  void SetText(const void* Text) noexcept {
    if (FRecord && Text) CopyText(FRecord->Text, sizeof FRecord->Text, static_cast<const char*>(Text));
  }
  void Commit() noexcept {
    if (!FRecord) return;
    GComplete[FSlot].store(1, std::memory_order_release);
    FRecord = nullptr;
  }

 private:
  TQvTestRecord* FRecord = nullptr;
  int32_t FSlot = 0;
};

// ---------------------------------------------------------------------------
// Calls into the host, recorded with their answers.

intptr_t CallHost(TAudioMasterCallbackFunc Host, PVSTEffect Effect, int32_t Opcode, int32_t Index,
                  intptr_t Value, void* Ptr, float Opt) noexcept {
  const bool Dirty = GDirtyFpu.load(std::memory_order_relaxed);
  const int Mode = std::fegetround();
  if (Dirty) std::fesetround(FE_UPWARD);
  TRecorder Record(qrHostCallback, Effect, Opcode, Index, Value, Ptr, Opt);
  if (Opcode == audioMasterCanDo) Record.SetText(Ptr);
  const intptr_t Answer = Host ? Host(Effect, Opcode, Index, Value, Ptr, Opt) : 0;
  if (Dirty) std::fesetround(Mode);
  Record.SetResult(Answer);
  if (TQvTestRecord* R = Record.Get()) {
    if (Opcode == audioMasterGetTime) {
      // The answer is an address: read through it only where memory is readable.
      TVstTimeInfo Info;
      if (CopyIfReadable(&Info, reinterpret_cast<const void*>(Answer), sizeof Info)) {
        R->Input[0] = Info.SampleRate;
        R->Input[1] = 1;
      }
    } else if ((Opcode == audioMasterGetVendorString || Opcode == audioMasterGetProductString) && Ptr) {
      Record.SetText(Ptr);
    }
  }
  return Answer;
}

// ---------------------------------------------------------------------------
// The plug-in object behind one effect record.

constexpr int32_t kProgramNameCapacity = 64;

struct TProgram {
  char Name[kProgramNameCapacity];
  float Values[qpCount];
};

constexpr TProgram kFactoryPrograms[kQvTestNumPrograms] = {
    {"Unity", {0.5f, 0.0f, 0.0f}},
    {"Half", {0.25f, 0.0f, 0.0f}},
    {"Swapped", {0.5f, 1.0f, 0.0f}},
    {"Silent", {0.0f, 0.0f, 1.0f}},
};

constexpr const char* kParameterNames[qpCount] = {"Gain", "Channel Map", "Frozen"};

// Chunks: the whole bank ('QvCB', program count, current program, programs)
// or the current program ('QvCP', one program), in the machine's byte order.
constexpr int32_t kBankChunkMagic = FourCharToLong('Q', 'v', 'C', 'B');
constexpr int32_t kPresetChunkMagic = FourCharToLong('Q', 'v', 'C', 'P');

void Store(std::vector<uint8_t>& Out, const void* Data, size_t Size) {
  const auto* Bytes = static_cast<const uint8_t*>(Data);
  Out.insert(Out.end(), Bytes, Bytes + Size);
}

class TPlugin {
 public:
  TPlugin(TAudioMasterCallbackFunc Host, int32_t UniqueId) noexcept : FHost(Host) {
    FEffect.Magic = FourCharToLong('V', 's', 't', 'P');
    FEffect.Dispatcher = &TPlugin::Dispatcher;
    FEffect.Process = &TPlugin::Process;
    FEffect.SetParameter = &TPlugin::SetParameter;
    FEffect.GetParameter = &TPlugin::GetParameter;
    const int64_t Programs = GNumPrograms.load(), Ins = GNumInputs.load(), Outs = GNumOutputs.load();
    const int64_t Delay = GInitialDelay.load();
    FEffect.numPrograms = Programs == kUnset ? kQvTestNumPrograms : static_cast<int32_t>(Programs);
    FEffect.numParams = qpCount;
    FEffect.numInputs = Ins == kUnset ? kChannels : static_cast<int32_t>(Ins);
    FEffect.numOutputs = Outs == kUnset ? kChannels : static_cast<int32_t>(Outs);
    FEffect.EffectFlags = VariantFlags();
    if (GHasEditor.load()) FEffect.EffectFlags.Include(TEffFlag::effFlagsHasEditor);
    FEffect.InitialDelay = Delay == kUnset ? kQvTestInitialDelay : static_cast<int32_t>(Delay);
    if (Delay != kUnset && Delay > 0) {
      // One line per delayed channel, allocated here so that processing never allocates.
      const size_t Lines = std::min<size_t>(static_cast<size_t>(std::max(FEffect.numOutputs, 0)), kMaxDelayedChannels);
      FDelay.assign(Lines, std::vector<double>(static_cast<size_t>(Delay), 0.0));
    }
    FEffect.IORatio = 1.0f;
    FEffect.vObject = this;
    FEffect.UniqueID = UniqueId;
    FEffect.Version = kQvTestVersion;
    if (VariantFlags().Contains(TEffFlag::effFlagsCanReplacing))
      FEffect.ProcessReplacing = &TPlugin::ProcessReplacing;
    if (kDouble) FEffect.ProcessDoubleReplacing = &TPlugin::ProcessDoubleReplacing;
    std::copy(std::begin(kFactoryPrograms), std::end(kFactoryPrograms), FPrograms);
    LoadProgram(0);
  }

  ~TPlugin() { CloseEditorView(FView); }
  TPlugin(const TPlugin&) = delete;
  TPlugin& operator=(const TPlugin&) = delete;

  PVSTEffect Effect() noexcept { return &FEffect; }
  TAudioMasterCallbackFunc Host() const noexcept { return FHost; }

  static TPlugin* Of(PVSTEffect Effect) noexcept {
    return Effect ? static_cast<TPlugin*>(Effect->vObject) : nullptr;
  }

 private:
  // --- effect record entries ----------------------------------------------

  static intptr_t Dispatcher(PVSTEffect Effect, int32_t Opcode, int32_t Index, intptr_t Value, void* Ptr,
                             float Opt) noexcept {
    TPlugin* Self = Of(Effect);
    if (!Self) return 0;
    TRecorder Record(qrDispatch, Effect, Opcode, Index, Value, Ptr, Opt);
    if (Opcode == effCanDo || Opcode == effSetProgramName || Opcode == effString2Parameter)
      Record.SetText(Ptr);
    if (Opcode == effClose) {
      if (GThreadedCallbacks.load()) Self->CallHostFromThread();
      // The record goes out before the object does: nothing may touch it afterwards.
      Record.Commit();
      delete Self;
      return 0;
    }
    intptr_t Result = 0;
    try {
      Result = Self->Dispatch(Opcode, Index, Value, Ptr, Opt, Record);
    } catch (...) {
      Result = 0;
    }
    Record.SetResult(Result);
    return Result;
  }

  static void SetParameter(PVSTEffect Effect, int32_t Index, float Value) noexcept {
    TRecorder Record(qrSetParameter, Effect, 0, Index, 0, nullptr, Value);
    if (TPlugin* Self = Of(Effect); Self && Index >= 0 && Index < qpCount)
      Self->FValues[Index].store(Value, std::memory_order_relaxed);
  }

  static float GetParameter(PVSTEffect Effect, int32_t Index) noexcept {
    TRecorder Record(qrGetParameter, Effect, 0, Index, 0, nullptr, 0.0f);
    TPlugin* Self = Of(Effect);
    const float Value =
        Self && Index >= 0 && Index < qpCount ? Self->FValues[Index].load(std::memory_order_relaxed) : 0.0f;
    if (TQvTestRecord* R = Record.Get()) R->Opt = Value;
    return Value;
  }

  // "CrashInProcess": an access violation, as a broken plug-in makes one.
  static void MaybeCrash() noexcept {
    if (GCrashInProcess.load(std::memory_order_relaxed)) *GNowhere = 1;
  }

  static void Process(PVSTEffect Effect, PPSingle Inputs, PPSingle Outputs, int32_t Frames) noexcept {
    MaybeCrash();
    if (TPlugin* Self = Of(Effect)) Self->Run(qrProcess, Inputs, Outputs, Frames, true);
  }

  // Once 64-bit processing was accepted the host hands over 64-bit channel blocks here too.
  static void ProcessReplacing(PVSTEffect Effect, PPSingle Inputs, PPSingle Outputs, int32_t Frames) noexcept {
    MaybeCrash();
    TPlugin* Self = Of(Effect);
    if (!Self) return;
    if (kDouble && Self->FDouble.load(std::memory_order_relaxed))
      Self->Run(qrProcessReplacing, reinterpret_cast<PPDouble>(Inputs), reinterpret_cast<PPDouble>(Outputs),
                Frames, false);
    else
      Self->Run(qrProcessReplacing, Inputs, Outputs, Frames, false);
  }

  static void ProcessDoubleReplacing(PVSTEffect Effect, PPDouble Inputs, PPDouble Outputs,
                                     int32_t Frames) noexcept {
    MaybeCrash();
    if (TPlugin* Self = Of(Effect)) Self->Run(qrProcessDoubleReplacing, Inputs, Outputs, Frames, false);
  }

  // --- processing ---------------------------------------------------------

  template <typename T>
  void Run(TQvTestRecordKind Kind, T** Inputs, T** Outputs, int32_t Frames, bool Accumulate) noexcept {
    // The counts declared now (a host passes at least this many pointers).
    const int32_t NumIn = std::max(FEffect.numInputs, 0), NumOut = std::max(FEffect.numOutputs, 0);
    {
      TRecorder Record(Kind, &FEffect, 0, 0, 0, nullptr, 0.0f);
      if (TQvTestRecord* R = Record.Get()) {
        R->SampleFrames = Frames;
        R->Precision = sizeof(T) == sizeof(double) ? 64 : 32;
        R->Count = NumIn;
        bool All = Inputs && Outputs;
        for (int32_t C = 0; All && C < NumIn; ++C) All = Inputs[C] != nullptr;
        for (int32_t C = 0; All && C < NumOut; ++C) All = Outputs[C] != nullptr;
        R->Concurrent = All ? 1 : 0;
        for (int32_t C = 0; C < std::min(NumIn, 2); ++C)
          if (Inputs && Inputs[C] && Frames > 0) R->Input[C] = static_cast<double>(Inputs[C][0]);
      }
    }
    if (!kNull && GCallHostInProcess.load(std::memory_order_relaxed))
      CallHost(FHost, &FEffect, audioMasterGetTime, 0, kQvTestTimeFlags.Mask(), nullptr, 0.0f);
    if (!Outputs) return;
    auto InputOf = [&](int32_t C, int32_t J) -> T {
      return C < NumIn && Inputs && Inputs[C] ? Inputs[C][J] : T(0);
    };
    if constexpr (kNull) {
      for (int32_t C = 0; C < NumOut; ++C) {
        if (!Outputs[C]) continue;
        for (int32_t J = 0; J < Frames; ++J) {
          const T In = InputOf(C, J);
          Outputs[C][J] = Accumulate ? Outputs[C][J] + In : In;
        }
      }
      return;
    }

    const double Fixed = GFixedOutput.load(std::memory_order_relaxed);
    const bool Bypass = FBypass.load(std::memory_order_relaxed);
    const double Gain = 2.0 * FValues[qpGain].load(std::memory_order_relaxed);
    const bool Swap = NumIn >= 2 && NumOut >= 2 && FValues[qpChannelMap].load(std::memory_order_relaxed) >= 0.5f;
    for (int32_t J = 0; J < Frames; ++J) {
      // The first two inputs are read before any output is written: the
      // blocks may be the same, and the channel map crosses them.
      const T First[2] = {InputOf(0, J), InputOf(1, J)};
      for (int32_t C = 0; C < NumOut; ++C) {
        if (!Outputs[C]) continue;
        const T In = C < 2 ? First[Swap ? 1 - C : C] : InputOf(C, J);
        const T Own = C < 2 ? First[C] : In;
        double Out;
        if (Bypass && std::isnan(Fixed))
          Out = static_cast<double>(Own);
        else if (!std::isnan(Fixed))
          Out = Fixed;
        else
          Out = static_cast<double>(In) * Gain;
        if (static_cast<size_t>(C) < FDelay.size()) {
          double& Slot = FDelay[static_cast<size_t>(C)][FDelayPos];
          std::swap(Out, Slot);
        }
        if (Accumulate)
          Outputs[C][J] += static_cast<T>(Out);
        else
          Outputs[C][J] = static_cast<T>(Out);
      }
      if (!FDelay.empty()) FDelayPos = (FDelayPos + 1) % FDelay[0].size();
    }
  }

  // "ThreadedCallbacks": a thread of the plug-in's own asks the host, and the
  // plug-in waits for it, as plug-ins with worker threads do in effOpen/effClose.
  void CallHostFromThread() noexcept {
    try {
      std::thread Worker([this] {
        for (int32_t Opcode : kQvTestThreadedOpcodes) {
          char Text[256] = "sendVstTimeInfo";
          TVstTimeInfo Time{};
          Time.Tempo = 133.0;
          void* Ptr = nullptr;
          intptr_t Value = 0;
          float Opt = 0.0f;
          if (Opcode == audioMasterSetTime) {
            Ptr = &Time;
            Value = static_cast<intptr_t>(TVstTimeInfoFlags{TVstTimeInfoFlag::kVstTempoValid}.Mask());
          } else if (Opcode == audioMasterGetVendorString || Opcode == audioMasterGetProductString ||
                     Opcode == audioMasterCanDo || Opcode == audioMasterGetDirectory) {
            Ptr = Text;
          } else if (Opcode == audioMasterSetOutputSampleRate) {
            Opt = 22050.0f;
          } else if (Opcode == audioMasterSizeWindow) {
            Value = 200;
          }
          CallHost(FHost, &FEffect, Opcode, Opcode == audioMasterSizeWindow ? 300 : 0, Value, Ptr, Opt);
        }
      });
      Worker.join();
    } catch (...) {
      // No thread: nothing asked.
    }
  }

  // --- dispatcher ---------------------------------------------------------

  intptr_t Dispatch(int32_t Opcode, int32_t Index, intptr_t Value, void* Ptr, float Opt, TRecorder& Record) {
    auto Answer = [&](const char* Text, size_t Size) -> intptr_t {
      if (!Ptr) return 0;
      CopyText(static_cast<char*>(Ptr), Size, Text);
      Record.SetText(Ptr);
      return 1;
    };
    const bool IsParameter = Index >= 0 && Index < qpCount;
    switch (Opcode) {
      case effOpen:
        if (GThreadedCallbacks.load()) CallHostFromThread();
        if (!kNull) {
          CallHost(FHost, &FEffect, audioMasterCanDo, 0, 0, const_cast<char*>("sendVstTimeInfo"), 0.0f);
          CallHost(FHost, &FEffect, audioMasterCanDo, 0, 0, const_cast<char*>("sizeWindow"), 0.0f);
          CallHost(FHost, &FEffect, audioMasterGetSampleRate, 0, 0, nullptr, 0.0f);
          CallHost(FHost, &FEffect, audioMasterGetBlockSize, 0, 0, nullptr, 0.0f);
        }
        return 0;
      case effSetProgram:
        if (Value >= 0 && Value < kQvTestNumPrograms) {
          SaveProgram();
          LoadProgram(static_cast<int32_t>(Value));
        }
        return 0;
      case effGetProgram:
        return FCurrent;
      case effSetProgramName:
        if (Ptr) CopyText(FPrograms[FCurrent].Name, ProgramNameSize(), static_cast<char*>(Ptr));
        return 0;
      case effGetProgramName:
        Answer(FPrograms[FCurrent].Name, ProgramNameSize());
        return 0;
      case effGetProgramNameIndexed:
        if (!GProgramNameIndexed.load() || Index < 0 || Index >= kQvTestNumPrograms) return 0;
        return Answer(FPrograms[Index].Name, ProgramNameSize());
      case effGetParamLabel:
        if (IsParameter) Answer(Index == qpGain ? "x" : "", 9);
        return 0;
      case effGetParamDisplay:
        if (IsParameter) Answer(GEmptyDisplay.load() ? "" : Display(Index).Text, 9);
        return 0;
      case effGetParamName:
        if (IsParameter) Answer(kParameterNames[Index], 32);
        return 0;
      case effCanBeAutomated:
        return IsParameter && Index != qpFrozen ? 1 : 0;
      case effString2Parameter:
        if (!IsParameter || !Ptr) return 0;
        SetFromText(Index, static_cast<const char*>(Ptr));
        return 1;
      case effGetParameterProperties:
        return Properties(Index, static_cast<PVstParameterProperties>(Ptr));
      case effIdentify:
        return kQvTestIdentify;
      case effGetChunk:
        return GetChunk(Index != 0, static_cast<void**>(Ptr));
      case effSetChunk: {
        const bool Taken = SetChunk(Index != 0, Ptr, Value);
        if (TQvTestRecord* R = Record.Get()) R->Count = Taken;
        return Taken;
      }
      case effProcessEvents:
        if (TQvTestRecord* R = Record.Get(); R && Ptr) R->Count = static_cast<PVstEvents>(Ptr)->numEvents;
        return 1;
      case effGetInputProperties:
      case effGetOutputProperties:
        return Pin(Opcode == effGetInputProperties, Index, static_cast<PVstPinProperties>(Ptr), Record);
      case effGetPlugCategory:
        return vpcEffect;
      case effSetBypass:
        FBypass.store(Value != 0, std::memory_order_relaxed);
        return 1;
      case effGetEffectName:
        return Answer(kNull ? kQvTestNullEffectName : kQvTestEffectName, 32);
      case effGetVendorString: {
        const int32_t Vendor = GVendor.load();
        return Answer(Vendor == 1 ? kQvTestVendorDash : Vendor == 2 ? kQvTestVendorWusik : kQvTestVendor, 64);
      }
      case effGetProductString:
        return Answer(kQvTestProduct, 64);
      case effGetVendorVersion:
        return kQvTestVersion;
      case effCanDo:
        return CanDo(static_cast<const char*>(Ptr));
      case effGetTailSize:
        return GTailSize.load();
      case effGetVstVersion:
        return kQvTestVstVersion;
      case effSetProcessPrecision:
        if (Value == pp32) {
          FDouble.store(false, std::memory_order_relaxed);
          return 1;
        }
        if (Value == pp64 && kDouble) {
          FDouble.store(true, std::memory_order_relaxed);
          return 1;
        }
        return 0;
      case effSetPanLaw:
        return 1;
      case effEditGetRect:
      case effEditOpen:
      case effEditClose:
      case effEditIdle:
      case effSetViewPosition:
        return kEditor ? Editor(Opcode, Index, Value, Ptr) : 0;
      case effBeginLoadBank:
      case effBeginLoadProgram: {
        const auto* Info = static_cast<const TVstPatchChunkInfo*>(Ptr);
        if (TQvTestRecord* R = Record.Get(); R && Info) R->Count = Info->numElements;
        return Info && Info->pluginUniqueID == FEffect.UniqueID ? 1 : -1;
      }
      default:
        return 0;
    }
  }

  // --- editor -------------------------------------------------------------

  intptr_t Editor(int32_t Opcode, int32_t Index, intptr_t Value, void* Ptr) {
    switch (Opcode) {
      case effEditGetRect: {
        if (!Ptr) return 0;
        const int32_t W = FView ? FViewWidth : GEditorWidth.load(), H = FView ? FViewHeight : GEditorHeight.load();
        FRect = MakeERect(0, 0, static_cast<int16_t>(W), static_cast<int16_t>(H));
        *static_cast<PPERect>(Ptr) = &FRect;
        return 1;
      }
      case effEditOpen:
        if (FView) return 0;
        FViewWidth = GEditorWidth.load();
        FViewHeight = GEditorHeight.load();
        FView = OpenEditorView(Ptr, FViewWidth, FViewHeight);
        if (!FView) return 0;
        PaintView();
        return 1;
      case effEditClose:
        CloseEditorView(FView);
        FView = nullptr;
        return 0;
      case effEditIdle:
        if (FView) IdleView();
        return 0;
      case effSetViewPosition:
        if (!FView) return 0;
        MoveEditorView(FView, Index, static_cast<int32_t>(Value));
        return 1;
      default:
        return 0;
    }
  }

  void PaintView() {
    FPaintedGain = FValues[qpGain].load(std::memory_order_relaxed);
    uint32_t Colours[kQvTestEditorBlocks];
    for (int32_t I = 0; I < kQvTestEditorBlocks; ++I) Colours[I] = QvTestEditorColour(I, FPaintedGain);
    PaintEditorView(FView, Colours, kQvTestEditorBlocks);
  }

  void IdleView() {
    bool Repaint = ProcessEditorViewEvents(FView);
    const int32_t W = GEditorWidth.load(), H = GEditorHeight.load();
    if (W != FViewWidth || H != FViewHeight) {
      FViewWidth = W;
      FViewHeight = H;
      ResizeEditorView(FView, W, H);
      CallHost(FHost, &FEffect, audioMasterSizeWindow, W, H, nullptr, 0.0f);
      Repaint = true;
    }
    if (Repaint || FValues[qpGain].load(std::memory_order_relaxed) != FPaintedGain) PaintView();
    if (const int64_t Style = GOpenWindow.exchange(kUnset); Style != kUnset) {
      FWindow = TVstWindow{};
      CopyText(FWindow.Title, sizeof FWindow.Title, kQvTestWindowTitle);
      FWindow.xPos = kQvTestWindowX;
      FWindow.yPos = kQvTestWindowY;
      FWindow.Width = kQvTestWindowWidth;
      FWindow.Height = kQvTestWindowHeight;
      FWindow.Style = static_cast<int32_t>(Style);
      CallHost(FHost, &FEffect, audioMasterOpenWindow, 0, 0, &FWindow, 0.0f);
    }
    if (GCloseWindow.exchange(false)) CallHost(FHost, &FEffect, audioMasterCloseWindow, 0, 0, &FWindow, 0.0f);
  }

  // Buffer size for a program name: its characters and the terminating zero.
  static size_t ProgramNameSize() noexcept {
    return static_cast<size_t>(std::clamp(GProgramNameLength.load(), 1, kProgramNameCapacity - 1)) + 1;
  }

  static intptr_t CanDo(const char* Text) noexcept {
    if (!Text) return 0;
    if (std::strcmp(Text, "bypass") == 0) return GCanDoBypass.load();
    for (const char* Yes : {"receiveVstEvents", "receiveVstMidiEvent", "receiveVstTimeInfo"})
      if (std::strcmp(Text, Yes) == 0) return 1;
    for (const char* No : {"sendVstEvents", "sendVstMidiEvent", "offline", "midiProgramNames"})
      if (std::strcmp(Text, No) == 0) return 0;
    return -1;
  }

  struct TText {
    char Text[16];
  };
  TText Display(int32_t Index) const noexcept {
    TText Out{};
    const float Value = FValues[Index].load(std::memory_order_relaxed);
    if (Index == qpGain)
      std::snprintf(Out.Text, sizeof Out.Text, "%.3f", 2.0 * Value);
    else if (Index == qpChannelMap)
      CopyText(Out.Text, sizeof Out.Text, Value >= 0.5f ? "Swapped" : "Normal");
    else
      CopyText(Out.Text, sizeof Out.Text, Value >= 0.5f ? "On" : "Off");
    return Out;
  }

  // Texts as effGetParamDisplay shows them: the gain factor, or the state's name, or a number.
  void SetFromText(int32_t Index, const char* Text) noexcept {
    float Value = 0.0f;
    if (std::strcmp(Text, "Swapped") == 0 || std::strcmp(Text, "On") == 0)
      Value = 1.0f;
    else if (std::strcmp(Text, "Normal") == 0 || std::strcmp(Text, "Off") == 0)
      Value = 0.0f;
    else
      Value = static_cast<float>(std::strtod(Text, nullptr) / (Index == qpGain ? 2.0 : 1.0));
    FValues[Index].store(std::clamp(Value, 0.0f, 1.0f), std::memory_order_relaxed);
  }

  // Gain has float steps, Frozen is a switch; Channel Map has no properties.
  static intptr_t Properties(int32_t Index, PVstParameterProperties Out) noexcept {
    if (!Out || (Index != qpGain && Index != qpFrozen)) return 0;
    *Out = TVstParameterProperties{};
    CopyText(Out->Caption, sizeof Out->Caption, kParameterNames[Index]);
    CopyText(Out->ShortLabel, sizeof Out->ShortLabel, Index == qpGain ? "Gain" : "Frz");
    if (Index == qpGain) {
      Out->Flags.Include(TVstParameterPropertiesFlag::kVstParameterUsesFloatStep);
      Out->StepFloat = 0.01f;
      Out->SmallStepFloat = 0.001f;
      Out->LargeStepFloat = 0.1f;
    } else {
      Out->Flags.Include(TVstParameterPropertiesFlag::kVstParameterIsSwitch);
    }
    return 1;
  }

  intptr_t Pin(bool Input, int32_t Index, PVstPinProperties Out, TRecorder& Record) const noexcept {
    const int32_t Channels = Input ? FEffect.numInputs : FEffect.numOutputs;
    if (!Out || Index < 0 || Index >= Channels) return 0;
    *Out = TVstPinProperties{};
    std::snprintf(Out->Caption, sizeof Out->Caption, "%s %d", Input ? "Input" : "Output", int(Index) + 1);
    char Label[32];
    std::snprintf(Label, sizeof Label, "%s%d", Input ? "In" : "Out", static_cast<int>(Index) + 1);
    CopyText(Out->ShortLabel, sizeof Out->ShortLabel, Label);
    Out->Flags.Include(TVstPinPropertiesFlag::vppIsActive);
    if (Channels == 2) Out->Flags.Include(TVstPinPropertiesFlag::vppIsStereo);
    Out->ArrangementType = Channels == 2 ? 1 : 0;  // stereo, mono
    Record.SetText(Out->Caption);
    return 1;
  }

  // --- programs and chunks ------------------------------------------------

  void SaveProgram() noexcept {
    for (int32_t I = 0; I < qpCount; ++I)
      FPrograms[FCurrent].Values[I] = FValues[I].load(std::memory_order_relaxed);
  }
  void LoadProgram(int32_t Program) noexcept {
    FCurrent = Program;
    for (int32_t I = 0; I < qpCount; ++I)
      FValues[I].store(FPrograms[Program].Values[I], std::memory_order_relaxed);
  }

  intptr_t GetChunk(bool Preset, void** Out) {
    if (!Out) return 0;
    SaveProgram();
    FChunk.clear();
    if (Preset) {
      Store(FChunk, &kPresetChunkMagic, 4);
      Store(FChunk, &FPrograms[FCurrent], sizeof(TProgram));
    } else {
      const int32_t Count = kQvTestNumPrograms;
      Store(FChunk, &kBankChunkMagic, 4);
      Store(FChunk, &Count, 4);
      Store(FChunk, &FCurrent, 4);
      Store(FChunk, FPrograms, sizeof FPrograms);
    }
    *Out = FChunk.data();
    return static_cast<intptr_t>(FChunk.size());
  }

  bool SetChunk(bool Preset, const void* Data, intptr_t Size) noexcept {
    if (!Data || Size < 4) return false;
    const auto* Bytes = static_cast<const uint8_t*>(Data);
    int32_t Magic = 0;
    std::memcpy(&Magic, Bytes, 4);
    if (Preset) {
      if (Magic != kPresetChunkMagic || Size < intptr_t(4 + sizeof(TProgram))) return false;
      std::memcpy(&FPrograms[FCurrent], Bytes + 4, sizeof(TProgram));
      FPrograms[FCurrent].Name[kProgramNameCapacity - 1] = 0;
      LoadProgram(FCurrent);
      return true;
    }
    int32_t Count = 0, Current = 0;
    if (Magic != kBankChunkMagic || Size < intptr_t(12 + sizeof FPrograms)) return false;
    std::memcpy(&Count, Bytes + 4, 4);
    std::memcpy(&Current, Bytes + 8, 4);
    if (Count != kQvTestNumPrograms || Current < 0 || Current >= kQvTestNumPrograms) return false;
    std::memcpy(FPrograms, Bytes + 12, sizeof FPrograms);
    for (TProgram& Program : FPrograms) Program.Name[kProgramNameCapacity - 1] = 0;
    LoadProgram(Current);
    return true;
  }

  TVSTEffect FEffect{};
  TAudioMasterCallbackFunc FHost;
  // Parameter values of the current program; FPrograms holds the others' (and
  // the current one's as of the last switch).
  std::atomic<float> FValues[qpCount]{};
  std::atomic<bool> FBypass{false};
  std::atomic<bool> FDouble{false};
  TProgram FPrograms[kQvTestNumPrograms]{};
  int32_t FCurrent = 0;
  std::vector<uint8_t> FChunk;  // handed out by effGetChunk, valid until the next call
  // "InitialDelay": one line per delayed output channel, and the position in them.
  std::vector<std::vector<double>> FDelay;
  size_t FDelayPos = 0;
  // The "Editor" variant's editor: its window while open, and what it shows.
  TEditorView* FView = nullptr;
  int32_t FViewWidth = 0, FViewHeight = 0;
  float FPaintedGain = 0.0f;
  TERect FRect{};
  TVstWindow FWindow{};  // the record of the window asked for, kept for its closing
};

// Applies "Name=Value,Name=Value" from the environment.
void ApplyEnvironmentOptions() noexcept;

// Unused in the variant without entry points.
[[maybe_unused]] PVSTEffect Entry(TAudioMasterCallbackFunc Host, TQvTestEntry Which) noexcept {
  const int32_t Running = GEntriesRunning.fetch_add(1) + 1;
  TRecorder Record(qrEntry, nullptr, Which, 0, 0, nullptr, 0.0f);
  if (TQvTestRecord* R = Record.Get()) R->Concurrent = Running;
  // Give another entry call that a host failed to hold back the chance to overlap.
  for (int I = 0; I < 64; ++I) std::this_thread::yield();
  struct TLeave {
    ~TLeave() { GEntriesRunning.fetch_sub(1); }
  } Leave;
  GLastHost.store(Host);
  ApplyEnvironmentOptions();
  // Before any effect exists: the host can only answer for "whoever is loading".
  CallHost(Host, nullptr, audioMasterVersion, 0, 0, nullptr, 0.0f);
  CallHost(Host, nullptr, audioMasterGetSampleRate, 0, 0, nullptr, 0.0f);
  CallHost(Host, nullptr, audioMasterGetBlockSize, 0, 0, nullptr, 0.0f);
  if (kVariant == TVariant::NoEffect) return nullptr;
  auto* Plugin = new (std::nothrow) TPlugin(Host, UniqueIdFor(Which));
  if (!Plugin) return nullptr;
  Record.SetResult(static_cast<int64_t>(reinterpret_cast<uintptr_t>(Plugin->Effect())));
  return Plugin->Effect();
}

}  // namespace
}  // namespace Quorvel::Qvtestplugin

using namespace Quorvel;
using namespace Quorvel::Qvtestplugin;

QV_EXPORT int32_t QvTestGetRecords(const TQvTestRecord** Records) noexcept {
  const int32_t Reserved = std::min(GReserved.load(std::memory_order_relaxed), kQvTestRecordCapacity);
  int32_t Complete = 0;
  while (Complete < Reserved && GComplete[Complete].load(std::memory_order_acquire)) ++Complete;
  if (Records) *Records = GRecords;
  return Complete;
}

QV_EXPORT void QvTestClearRecords() noexcept {
  const int32_t Reserved = std::min(GReserved.load(std::memory_order_relaxed), kQvTestRecordCapacity);
  for (int32_t I = 0; I < Reserved; ++I) GComplete[I].store(0, std::memory_order_relaxed);
  GReserved.store(0, std::memory_order_release);
}

QV_EXPORT int32_t QvTestSetOption(const char* Name, double Value) noexcept {
  auto Is = [Name](const char* Knob) { return Name && std::strcmp(Name, Knob) == 0; };
  if (Is("FixedOutput")) {
    GFixedOutput.store(Value);
  } else if (Is("CallHostInProcess")) {
    GCallHostInProcess.store(Value != 0);
  } else if (Is("ProgramNameIndexed")) {
    GProgramNameIndexed.store(Value != 0);
  } else if (Is("ProgramNameLength")) {
    GProgramNameLength.store(std::isnan(Value) ? kQvTestProgramNameLength
                                               : static_cast<int32_t>(std::clamp(Value, 1.0, 63.0)));
  } else if (Is("InitialDelay")) {
    GInitialDelay.store(Int32Of(Value));
  } else if (Is("TailSize")) {
    GTailSize.store(Int32Of(Value));
  } else if (Is("NumInputs")) {
    GNumInputs.store(Int32Of(Value));
  } else if (Is("NumOutputs")) {
    GNumOutputs.store(Int32Of(Value));
  } else if (Is("NumPrograms")) {
    GNumPrograms.store(Int32Of(Value));
  } else if (Is("CanDoBypass")) {
    GCanDoBypass.store(Int32Of(Value));
  } else if (Is("CrashInProcess")) {
    GCrashInProcess.store(Value != 0);
  } else if (Is("HasEditor")) {
    GHasEditor.store(Value != 0);
  } else if (Is("Vendor")) {
    GVendor.store(Int32Of(Value));
  } else if (Is("ThreadedCallbacks")) {
    GThreadedCallbacks.store(Value != 0);
  } else if (Is("DirtyFpu")) {
    GDirtyFpu.store(Value != 0);
  } else if (Is("EmptyDisplay")) {
    GEmptyDisplay.store(Value != 0);
  } else if (Is("EditorWidth")) {
    GEditorWidth.store(Int32Of(Value));
  } else if (Is("EditorHeight")) {
    GEditorHeight.store(Int32Of(Value));
  } else if (Is("OpenWindow")) {
    GOpenWindow.store(Int32Of(Value));
  } else if (Is("CloseWindow")) {
    GCloseWindow.store(Value != 0);
  } else if (Is("Reset")) {
    GInitialDelay.store(kUnset);
    GTailSize.store(kQvTestTailSize);
    GNumInputs.store(kUnset);
    GNumOutputs.store(kUnset);
    GNumPrograms.store(kUnset);
    GCanDoBypass.store(1);
    GCrashInProcess.store(false);
    GHasEditor.store(false);
    GVendor.store(0);
    GThreadedCallbacks.store(false);
    GDirtyFpu.store(false);
    GEmptyDisplay.store(false);
    GEditorWidth.store(kQvTestEditorWidth);
    GEditorHeight.store(kQvTestEditorHeight);
    GOpenWindow.store(kUnset);
    GCloseWindow.store(false);
    GFixedOutput.store(std::numeric_limits<double>::quiet_NaN());
    GCallHostInProcess.store(true);
    GProgramNameIndexed.store(true);
    GProgramNameLength.store(kQvTestProgramNameLength);
  } else {
    return 0;
  }
  return 1;
}

namespace Quorvel::Qvtestplugin {
namespace {

void ApplyEnvironmentOptions() noexcept {
  const char* Options = std::getenv(kQvTestOptionsVariable);
  if (!Options) return;
  char Name[64];
  const char* P = Options;
  while (*P) {
    const char* End = std::strchr(P, ',');
    if (!End) End = P + std::strlen(P);
    const char* Equals = static_cast<const char*>(std::memchr(P, '=', static_cast<size_t>(End - P)));
    if (Equals && static_cast<size_t>(Equals - P) < sizeof Name) {
      std::memcpy(Name, P, static_cast<size_t>(Equals - P));
      Name[Equals - P] = 0;
      QvTestSetOption(Name, std::strtod(Equals + 1, nullptr));
    }
    P = *End ? End + 1 : End;
  }
}

}  // namespace
}  // namespace Quorvel::Qvtestplugin

QV_EXPORT intptr_t QvTestCallHost(PVSTEffect Effect, int32_t Opcode, int32_t Index, intptr_t Value, void* Ptr,
                                  float Opt) noexcept {
  const TPlugin* Plugin = TPlugin::Of(Effect);
  return CallHost(Plugin ? Plugin->Host() : GLastHost.load(), Effect, Opcode, Index, Value, Ptr, Opt);
}

#ifdef QV_ENTRY_VSTPLUGINMAIN
QV_EXPORT PVSTEffect VSTPluginMain(TAudioMasterCallbackFunc Host) noexcept {
  return Entry(Host, qeVSTPluginMain);
}
#endif

#ifdef QV_ENTRY_MAIN
// C++ reserves the name main for the program's own: the function gets it as
// its symbol name only.
QV_EXPORT PVSTEffect QvTestMainEntry(TAudioMasterCallbackFunc Host) noexcept __asm__("main");
PVSTEffect QvTestMainEntry(TAudioMasterCallbackFunc Host) noexcept { return Entry(Host, qeMain); }
#endif
