// The VST 2 test plug-in. One source, built into several variants that differ
// in their entry points, channel counts, flags and processing (see
// CMakeLists.txt): each is a real plug-in library that a host loads through
// its entry point. It processes deterministically, answers fixed values, calls
// the host back where plug-ins commonly do, and records every call it gets.
#include "testplugins/vst2/Qvtestplugin.h"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <limits>
#include <new>
#include <thread>
#include <vector>

#include "testplugins/vst2/Qvreadable.h"

#ifdef _WIN32
#define QV_EXPORT extern "C" __declspec(dllexport)
#else
#define QV_EXPORT extern "C" __attribute__((visibility("default")))
#endif

namespace Quorvel::Qvtestplugin {
namespace {

static_assert(sizeof(TQvTestRecord) == 144, "the record is shared with the tests");

enum class TVariant {
  Main, MainOnly, Both, NoEffect, Accumulating, Double, Null, NotAPlugin, Mono, Chunks
};
constexpr TVariant kVariant = TVariant::QV_VARIANT;

constexpr bool kNull = kVariant == TVariant::Null;  // benchmarks: no records, no host calls
constexpr bool kDouble = kVariant == TVariant::Double;
constexpr int32_t kChannels = kVariant == TVariant::Mono ? 1 : 2;

int32_t UniqueIdFor(TQvTestEntry Entry) noexcept {
  switch (kVariant) {
    case TVariant::Both: return Entry == qeMain ? kQvTestUniqueIdMainEntry : kQvTestUniqueIdPluginMain;
    case TVariant::Accumulating: return kQvTestUniqueIdAccumulating;
    case TVariant::Double: return kQvTestUniqueIdDouble;
    case TVariant::Null: return kQvTestUniqueIdNull;
    case TVariant::Mono: return kQvTestUniqueIdMono;
    case TVariant::Chunks: return kQvTestUniqueIdChunks;
    default: return kQvTestUniqueId;
  }
}

TEffFlags VariantFlags() noexcept {
  TEffFlags Flags;
  if (kVariant != TVariant::Accumulating) Flags.Include(TEffFlag::effFlagsCanReplacing);
  if (kDouble) Flags.Include(TEffFlag::effFlagsCanDoubleReplacing);
  if (kVariant == TVariant::Chunks) Flags.Include(TEffFlag::effFlagsProgramChunks);
  return Flags;
}

// ---------------------------------------------------------------------------
// Knobs.

std::atomic<double> GFixedOutput{std::numeric_limits<double>::quiet_NaN()};
std::atomic<bool> GCallHostInProcess{true};
std::atomic<bool> GProgramNameIndexed{true};
std::atomic<int32_t> GProgramNameLength{kQvTestProgramNameLength};
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
  TRecorder Record(qrHostCallback, Effect, Opcode, Index, Value, Ptr, Opt);
  if (Opcode == audioMasterCanDo) Record.SetText(Ptr);
  const intptr_t Answer = Host ? Host(Effect, Opcode, Index, Value, Ptr, Opt) : 0;
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
    FEffect.numPrograms = kQvTestNumPrograms;
    FEffect.numParams = qpCount;
    FEffect.numInputs = kChannels;
    FEffect.numOutputs = kChannels;
    FEffect.EffectFlags = VariantFlags();
    FEffect.InitialDelay = kQvTestInitialDelay;
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

  static void Process(PVSTEffect Effect, PPSingle Inputs, PPSingle Outputs, int32_t Frames) noexcept {
    if (TPlugin* Self = Of(Effect)) Self->Run(qrProcess, Inputs, Outputs, Frames, true);
  }

  // Once 64-bit processing was accepted the host hands over 64-bit channel blocks here too.
  static void ProcessReplacing(PVSTEffect Effect, PPSingle Inputs, PPSingle Outputs, int32_t Frames) noexcept {
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
    if (TPlugin* Self = Of(Effect)) Self->Run(qrProcessDoubleReplacing, Inputs, Outputs, Frames, false);
  }

  // --- processing ---------------------------------------------------------

  template <typename T>
  void Run(TQvTestRecordKind Kind, T** Inputs, T** Outputs, int32_t Frames, bool Accumulate) noexcept {
    {
      TRecorder Record(Kind, &FEffect, 0, 0, 0, nullptr, 0.0f);
      if (TQvTestRecord* R = Record.Get()) {
        R->SampleFrames = Frames;
        R->Precision = sizeof(T) == sizeof(double) ? 64 : 32;
        R->Count = kChannels;
        for (int32_t C = 0; C < kChannels; ++C)
          if (Inputs && Inputs[C] && Frames > 0) R->Input[C] = static_cast<double>(Inputs[C][0]);
      }
    }
    if (!kNull && GCallHostInProcess.load(std::memory_order_relaxed))
      CallHost(FHost, &FEffect, audioMasterGetTime, 0, kQvTestTimeFlags.Mask(), nullptr, 0.0f);
    if (!Outputs) return;
    if constexpr (kNull) {
      for (int32_t C = 0; C < kChannels; ++C) {
        if (!Outputs[C]) continue;
        const T* In = Inputs && Inputs[C] ? Inputs[C] : nullptr;
        if (Accumulate) {
          for (int32_t J = 0; In && J < Frames; ++J) Outputs[C][J] += In[J];
        } else if (In) {
          std::memmove(Outputs[C], In, sizeof(T) * static_cast<size_t>(std::max(Frames, 0)));
        } else {
          std::fill(Outputs[C], Outputs[C] + std::max(Frames, 0), T(0));
        }
      }
      return;
    }

    const double Fixed = GFixedOutput.load(std::memory_order_relaxed);
    const bool Bypass = FBypass.load(std::memory_order_relaxed);
    const double Gain = 2.0 * FValues[qpGain].load(std::memory_order_relaxed);
    const bool Swap = kChannels == 2 && FValues[qpChannelMap].load(std::memory_order_relaxed) >= 0.5f;
    for (int32_t J = 0; J < Frames; ++J) {
      // Every input is read before any output is written: the blocks may be the same.
      T In[kChannels];
      for (int32_t C = 0; C < kChannels; ++C) In[C] = Inputs && Inputs[C] ? Inputs[C][J] : T(0);
      for (int32_t C = 0; C < kChannels; ++C) {
        if (!Outputs[C]) continue;
        T Out;
        if (Bypass && std::isnan(Fixed))
          Out = In[C];
        else if (!std::isnan(Fixed))
          Out = static_cast<T>(Fixed);
        else
          Out = static_cast<T>(In[Swap ? 1 - C : C] * Gain);
        if (Accumulate)
          Outputs[C][J] += Out;
        else
          Outputs[C][J] = Out;
      }
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
        if (IsParameter) Answer(Display(Index).Text, 9);
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
      case effGetVendorString:
        return Answer(kQvTestVendor, 64);
      case effGetProductString:
        return Answer(kQvTestProduct, 64);
      case effGetVendorVersion:
        return kQvTestVersion;
      case effCanDo:
        return CanDo(static_cast<const char*>(Ptr));
      case effGetTailSize:
        return kQvTestTailSize;
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

  // Buffer size for a program name: its characters and the terminating zero.
  static size_t ProgramNameSize() noexcept {
    return static_cast<size_t>(std::clamp(GProgramNameLength.load(), 1, kProgramNameCapacity - 1)) + 1;
  }

  static intptr_t CanDo(const char* Text) noexcept {
    if (!Text) return 0;
    for (const char* Yes : {"receiveVstEvents", "receiveVstMidiEvent", "receiveVstTimeInfo", "bypass"})
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
    if (!Out || Index < 0 || Index >= kChannels) return 0;
    *Out = TVstPinProperties{};
    std::snprintf(Out->Caption, sizeof Out->Caption, "%s %d", Input ? "Input" : "Output", int(Index) + 1);
    std::snprintf(Out->ShortLabel, sizeof Out->ShortLabel, "%s%d", Input ? "In" : "Out", int(Index) + 1);
    Out->Flags.Include(TVstPinPropertiesFlag::vppIsActive);
    if (kChannels == 2) Out->Flags.Include(TVstPinPropertiesFlag::vppIsStereo);
    Out->ArrangementType = kChannels == 2 ? 1 : 0;  // stereo, mono
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
};

// Unused in the variant without entry points.
[[maybe_unused]] PVSTEffect Entry(TAudioMasterCallbackFunc Host, TQvTestEntry Which) noexcept {
  TRecorder Record(qrEntry, nullptr, Which, 0, 0, nullptr, 0.0f);
  GLastHost.store(Host);
  // Before any effect exists: the host can only answer for "whoever is loading".
  CallHost(Host, nullptr, audioMasterVersion, 0, 0, nullptr, 0.0f);
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
  } else if (Is("Reset")) {
    GFixedOutput.store(std::numeric_limits<double>::quiet_NaN());
    GCallHostInProcess.store(true);
    GProgramNameIndexed.store(true);
    GProgramNameLength.store(kQvTestProgramNameLength);
  } else {
    return 0;
  }
  return 1;
}

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
