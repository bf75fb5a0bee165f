// The test driver: one device per slot, the driver objects over them, and
// the control functions.
//
// Locks: StreamLock guards the stream (buffers, owner, driver thread) and is
// held while the driver thread is joined; ConfigLock guards the configuration
// and is only ever held briefly. The driver thread and the oddity threads take
// neither, so a host may call the inquiry methods (which take ConfigLock) from
// its callbacks even while stop waits for the driver thread.
#include "testplugins/asio/Qvtestasio.h"

#if defined(__x86_64__) || defined(_M_X64)
#include <immintrin.h>
#endif

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <memory>
#include <mutex>
#include <new>
#include <thread>
#include <vector>

namespace Quorvel {
namespace {

constexpr TGUID IidIUnknown = {0x00000000u, 0x0000u, 0x0000u, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}};
constexpr int32_t ResultOk = 0;
constexpr int32_t ResultNoInterface = int32_t(0x80004002u);
constexpr int32_t ResultPointer = int32_t(0x80004003u);

// Driver objects of all slots plus driver threads not yet finished.
std::atomic<int32_t> Busy{0};
// Set on the threads the driver runs; they must not join themselves.
thread_local bool OnDriverThread = false;

bool SameGuid(const TGUID& A, const TGUID& B) { return std::memcmp(&A, &B, sizeof(TGUID)) == 0; }

void CopyText(char* Dest, size_t Size, const char* Text) {
  size_t Length = 0;
  while (Length + 1 < Size && Text[Length]) ++Length;
  std::memcpy(Dest, Text, Length);
  Dest[Length] = 0;
}

uint64_t NowNanoseconds() {
  return uint64_t(std::chrono::duration_cast<std::chrono::nanoseconds>(
                      std::chrono::steady_clock::now().time_since_epoch())
                      .count());
}

void SetChannel(TQvTestAsioChannel& Channel, TASIOSampleType Type, const char* Prefix, int32_t Number) {
  Channel.Type = Type;
  Channel.Group = 0;
  std::snprintf(Channel.Name, sizeof(Channel.Name), "%s %d", Prefix, int(Number));
}

void MakeDefaultConfig(int32_t Slot, TQvTestAsioConfig& C) {
  std::memset(&C, 0, sizeof(C));
  CopyText(C.DriverName, sizeof(C.DriverName), QvTestAsioNames[Slot]);
  CopyText(C.ErrorMessage, sizeof(C.ErrorMessage), "No error");
  C.DriverVersion = Slot == 0 ? 1 : 2;
  const TASIOSampleType Type = Slot == 0 ? ASIOSTInt32LSB : ASIOSTFloat32LSB;
  C.InputCount = C.OutputCount = Slot == 0 ? 2 : 4;
  for (int32_t I = 0; I < QvTestAsioMaxChannels; ++I) {
    SetChannel(C.Inputs[I], Type, "Analog In", I + 1);
    SetChannel(C.Outputs[I], Type, "Analog Out", I + 1);
  }
  if (Slot == 0) {
    C.MinSize = 64;
    C.MaxSize = 2048;
    C.PreferredSize = 256;
    C.Granularity = -1;
    C.InputLatency = 256 + 32;
    C.OutputLatency = 256 + 64;
    C.RateCount = 4;
    C.Rates[0] = 44100;
    C.Rates[1] = 48000;
    C.Rates[2] = 88200;
    C.Rates[3] = 96000;
    C.CurrentRate = 44100;
    C.ClockCount = 2;
    CopyText(C.ClockNames[0], 32, "Internal");
    CopyText(C.ClockNames[1], 32, "S/PDIF");
    C.Behaviours = qvbOutputReady;
  } else {
    C.MinSize = C.MaxSize = C.PreferredSize = 512;
    C.Granularity = 0;
    C.InputLatency = C.OutputLatency = 512;
    C.RateCount = 1;
    C.Rates[0] = 48000;
    C.CurrentRate = 48000;
    C.ClockCount = 1;
    CopyText(C.ClockNames[0], 32, "Internal");
    C.Behaviours = 0;
  }
  C.Pacing = qvpRealTime;
  C.CaptureFrames = 1 << 16;
}

// The channels behind a count: getChannels answers any count as it is, the
// tables and the stream hold at most QvTestAsioMaxChannels.
int32_t TableCount(int32_t N) { return std::min(std::max(N, 0), QvTestAsioMaxChannels); }

bool ConfigValid(const TQvTestAsioConfig& C) {
  if (C.MinSize < 1 || C.MinSize > C.PreferredSize || C.PreferredSize > C.MaxSize ||
      C.MaxSize > QvTestAsioMaxBufferSize)
    return false;
  if (C.RateCount < 0 || C.RateCount > QvTestAsioMaxRates) return false;
  for (int32_t I = 0; I < C.RateCount; ++I)
    if (!(C.Rates[I] > 0)) return false;
  if (C.ClockCount < 0 || C.ClockCount > QvTestAsioMaxClocks) return false;
  if (C.Pacing != qvpRealTime && C.Pacing != qvpFreeRunning && C.Pacing != qvpManual) return false;
  if (C.CaptureFrames < 0 || C.CaptureFrames > QvTestAsioMaxCaptureFrames) return false;
  if (C.RawPatternBytes < 0 || C.RawPatternBytes > QvTestAsioMaxRawPattern) return false;
  return C.MaxSwitches >= 0;
}

// Rounds a manually paced driver thread spins for a permit before it sleeps
// (about 50 microseconds).
constexpr int PermitSpins = 1000;

inline void CpuRelax() {
#if defined(__x86_64__) || defined(_M_X64)
  _mm_pause();
#else
  std::this_thread::yield();
#endif
}

// How long a driver call waits for the host call an oddity makes from
// another thread (only a deadlocked host takes that long).
constexpr auto OddSwitchPatience = std::chrono::seconds(30);

// What the threads need of the configuration, copied when a stream is made
// and again when it starts.
struct TSwitchParams {
  TASIOSampleRate Rate = 0;
  int32_t Pacing = qvpRealTime;
  uint32_t Behaviours = 0;
  TASIOBool DirectProcess = ASIOFalse;
  int32_t MaxSwitches = 0;
  int32_t RawPatternBytes = 0;
  uint8_t RawPattern[QvTestAsioMaxRawPattern] = {};
};

struct TStreamChannel {
  bool IsInput = false;
  int32_t Channel = 0;
  TASIOSampleType Type = 0;
  int64_t HalfBytes = 0;
  uint8_t* Halves[2] = {};
  uint8_t* Capture = nullptr;  // outputs: CaptureSwitches halves
};

// The buffers of one createBuffers and what the driver thread keeps.
struct TStream {
  int32_t BufferSize = 0;
  TASIOCallbacks* Callbacks = nullptr;
  bool TimeInfo = false;
  int64_t CaptureSwitches = 0;
  std::vector<TStreamChannel> Channels;
  std::vector<std::unique_ptr<uint8_t[]>> Blocks;
  TSwitchParams Params;   // written only while no thread runs on the stream
  // Driver thread only (and stop, after joining it).
  int32_t NextIndex = 0;
  uint64_t NextPosition = 0;
  int64_t Captured = 0;
  TASIOTime Time = {};
  // Oddity threads still using the stream; a disposed stream waits for them.
  std::atomic<int32_t> OddUsers{0};
};

struct TFailure {
  std::atomic<int32_t> Code{0};
  std::atomic<int32_t> Skip{0};
};

struct TCounters {
  std::atomic<int32_t> LiveObjects{0}, InitCalls{0}, CreateBuffersCalls{0}, DisposeBuffersCalls{0},
      StartCalls{0}, StopCalls{0}, ControlPanelCalls{0}, FutureCalls{0}, OutputReadyCalls{0},
      BuffersCreated{0}, Running{0}, ThreadRunning{0}, OddThreadsRunning{0}, RequestedBufferSize{0},
      TimeInfoAnswer{-1}, StreamInputs{0}, StreamOutputs{0}, LastIndex{-1}, SampleRateChanges{0},
      ResetRequests{0}, MessagesSent{0}, LastMessageAnswer{0};
  std::atomic<int64_t> SysHandle{0}, Switches{0}, TimeInfoSwitches{0}, OddSwitches{0}, SamplePosition{0},
      CapturedSwitches{0};

  // Back to zero, except what describes live things.
  void Clear() {
    for (auto* C : {&InitCalls, &CreateBuffersCalls, &DisposeBuffersCalls, &StartCalls, &StopCalls,
                    &ControlPanelCalls, &FutureCalls, &OutputReadyCalls, &RequestedBufferSize, &StreamInputs,
                    &StreamOutputs, &SampleRateChanges, &ResetRequests, &MessagesSent, &LastMessageAnswer})
      C->store(0);
    TimeInfoAnswer = -1;
    LastIndex = -1;
    for (auto* C : {&SysHandle, &Switches, &TimeInfoSwitches, &OddSwitches, &SamplePosition, &CapturedSwitches})
      C->store(0);
  }
};

class TDevice {
 public:
  explicit TDevice(int32_t Slot) : Slot(Slot) {
    MakeDefaultConfig(Slot, Config);
    OutputReadySupported = (Config.Behaviours & qvbOutputReady) != 0;
  }

  const int32_t Slot;
  TCounters Counters;

  // [any thread] The code to answer instead of running Method, or 0.
  int32_t Injected(TQvTestAsioMethod Method) {
    TFailure& F = Failures[Method];
    const int32_t Code = F.Code.load(std::memory_order_acquire);
    if (!Code) return 0;
    int32_t Left = F.Skip.load();
    while (Left > 0)
      if (F.Skip.compare_exchange_weak(Left, Left - 1)) return 0;
    return Code;
  }

  void SetFailure(TQvTestAsioMethod Method, int32_t Code, int32_t AfterCalls) {
    Failures[Method].Code.store(0);
    Failures[Method].Skip.store(std::max(AfterCalls, 0));
    Failures[Method].Code.store(Code, std::memory_order_release);
  }

  TQvTestAsioConfig GetConfig() {
    std::lock_guard<std::mutex> L(ConfigLock);
    return Config;
  }

  void SetConfig(const TQvTestAsioConfig& C) {
    std::lock_guard<std::mutex> L(ConfigLock);
    Config = C;
    OutputReadySupported = (C.Behaviours & qvbOutputReady) != 0;
  }

  // --- inquiry methods (ConfigLock only) ----------------------------------

  TASIOBool Init(void* SysHandle) {
    ++Counters.InitCalls;
    Counters.SysHandle = int64_t(reinterpret_cast<intptr_t>(SysHandle));
    return Injected(qvmInit) ? ASIOFalse : ASIOTrue;
  }

  void GetDriverName(char* Name) {
    if (!Name) return;
    std::lock_guard<std::mutex> L(ConfigLock);
    CopyText(Name, 32, Config.DriverName);
  }

  int32_t GetDriverVersion() {
    std::lock_guard<std::mutex> L(ConfigLock);
    return Config.DriverVersion;
  }

  void GetErrorMessage(char* Text) {
    if (!Text) return;
    std::lock_guard<std::mutex> L(ConfigLock);
    CopyText(Text, 124, Config.ErrorMessage);
  }

  TASIOError GetChannels(int32_t* Inputs, int32_t* Outputs) {
    if (const int32_t Code = Injected(qvmGetChannels)) return Code;
    if (!Inputs || !Outputs) return ASE_InvalidParameter;
    std::lock_guard<std::mutex> L(ConfigLock);
    *Inputs = Config.InputCount;
    *Outputs = Config.OutputCount;
    return ASE_OK;
  }

  TASIOError GetLatencies(int32_t* Input, int32_t* Output) {
    if (const int32_t Code = Injected(qvmGetLatencies)) return Code;
    if (!Input || !Output) return ASE_InvalidParameter;
    std::lock_guard<std::mutex> L(ConfigLock);
    *Input = Config.InputLatency;
    *Output = Config.OutputLatency;
    return ASE_OK;
  }

  TASIOError GetBufferSize(int32_t* Min, int32_t* Max, int32_t* Preferred, int32_t* Granularity) {
    if (const int32_t Code = Injected(qvmGetBufferSize)) return Code;
    if (!Min || !Max || !Preferred || !Granularity) return ASE_InvalidParameter;
    std::lock_guard<std::mutex> L(ConfigLock);
    *Min = Config.MinSize;
    *Max = Config.MaxSize;
    *Preferred = Config.PreferredSize;
    *Granularity = Config.Granularity;
    return ASE_OK;
  }

  TASIOError CanSampleRate(TASIOSampleRate Rate) {
    if (const int32_t Code = Injected(qvmCanSampleRate)) return Code;
    std::lock_guard<std::mutex> L(ConfigLock);
    return RateKnown(Rate) ? ASE_OK : ASE_NoClock;
  }

  TASIOError GetSampleRate(TASIOSampleRate* Rate) {
    if (const int32_t Code = Injected(qvmGetSampleRate)) return Code;
    if (!Rate) return ASE_InvalidParameter;
    std::lock_guard<std::mutex> L(ConfigLock);
    *Rate = Config.CurrentRate;
    return Config.CurrentRate > 0 ? ASE_OK : ASE_NoClock;
  }

  // Rate 0 asks for external clock, which this device does not have.
  TASIOError SetSampleRate(TASIOSampleRate Rate) {
    if (const int32_t Code = Injected(qvmSetSampleRate)) return Code;
    std::lock_guard<std::mutex> L(ConfigLock);
    if (!RateKnown(Rate)) return ASE_NoClock;
    Config.CurrentRate = Rate;
    return ASE_OK;
  }

  // Fills up to *NumSources entries and answers how many it filled.
  TASIOError GetClockSources(TASIOClockSource* Clocks, int32_t* NumSources) {
    if (const int32_t Code = Injected(qvmGetClockSources)) return Code;
    if (!Clocks || !NumSources) return ASE_InvalidParameter;
    std::lock_guard<std::mutex> L(ConfigLock);
    const int32_t Count = std::max(0, std::min(*NumSources, Config.ClockCount));
    for (int32_t I = 0; I < Count; ++I) {
      TASIOClockSource& S = Clocks[I];
      std::memset(&S, 0, sizeof(S));
      S.index = I;
      S.associatedChannel = -1;
      S.associatedGroup = -1;
      S.isCurrentSource = I == Config.CurrentClock ? ASIOTrue : ASIOFalse;
      CopyText(S.name, sizeof(S.name), Config.ClockNames[I]);
    }
    *NumSources = Count;
    return ASE_OK;
  }

  TASIOError SetClockSource(int32_t Index) {
    if (const int32_t Code = Injected(qvmSetClockSource)) return Code;
    std::lock_guard<std::mutex> L(ConfigLock);
    if (Index < 0 || Index >= Config.ClockCount) return ASE_InvalidParameter;
    Config.CurrentClock = Index;
    return ASE_OK;
  }

  TASIOError GetChannelInfo(TASIOChannelInfo* Info) {
    if (const int32_t Code = Injected(qvmGetChannelInfo)) return Code;
    if (!Info) return ASE_InvalidParameter;
    std::lock_guard<std::mutex> L(ConfigLock);
    const bool IsInput = Info->isInput != ASIOFalse;
    const int32_t Count = TableCount(IsInput ? Config.InputCount : Config.OutputCount);
    if (Info->channel < 0 || Info->channel >= Count) return ASE_InvalidParameter;
    const TQvTestAsioChannel& C = (IsInput ? Config.Inputs : Config.Outputs)[Info->channel];
    const uint32_t Active = (IsInput ? ActiveInputs : ActiveOutputs).load();
    Info->isActive = (Active >> Info->channel) & 1u ? ASIOTrue : ASIOFalse;
    Info->channelGroup = C.Group;
    Info->type = C.Type;
    CopyText(Info->name, sizeof(Info->name), C.Name);
    return ASE_OK;
  }

  TASIOError ControlPanel() {
    ++Counters.ControlPanelCalls;
    if (const int32_t Code = Injected(qvmControlPanel)) return Code;
    return ASE_OK;
  }

  TASIOError Future(int32_t Selector, void*) {
    ++Counters.FutureCalls;
    if (const int32_t Code = Injected(qvmFuture)) return Code;
    return Selector == kAsioCanTimeInfo ? ASE_SUCCESS : ASE_InvalidParameter;
  }

  // --- methods a host calls from its callbacks (lock-free) ----------------

  TASIOError GetSamplePosition(TASIOSamples* Position, TASIOTimeStamp* Stamp) {
    if (const int32_t Code = Injected(qvmGetSamplePosition)) return Code;
    if (!Position || !Stamp) return ASE_InvalidParameter;
    if (!Counters.Running.load()) return ASE_SPNotAdvancing;
    uint64_t P, T;
    uint32_t Before, After;
    // Sequentially consistent throughout, so a pair read while the driver
    // thread latches a new one shows a changed sequence and is read again.
    do {
      Before = LatchSequence.load();
      P = LatchedPosition.load();
      T = LatchedTime.load();
      After = LatchSequence.load();
    } while (Before != After || (Before & 1u));
    *Position = ASIOSamplesFrom(P);
    *Stamp = ASIOTimeStampFrom(T);
    return ASE_OK;
  }

  TASIOError OutputReady() {
    ++Counters.OutputReadyCalls;
    if (const int32_t Code = Injected(qvmOutputReady)) return Code;
    return OutputReadySupported.load() ? ASE_OK : ASE_NotPresent;
  }

  // --- stream methods (StreamLock) -----------------------------------------

  TASIOError CreateBuffers(const void* Caller, TASIOBufferInfo* Infos, int32_t Num, int32_t Size,
                           TASIOCallbacks* Callbacks) {
    if (OnDriverThread) return ASE_InvalidMode;
    std::unique_lock<std::recursive_mutex> L(StreamLock);
    ++Counters.CreateBuffersCalls;
    Counters.RequestedBufferSize = Size;
    if (const int32_t Code = Injected(qvmCreateBuffers)) return Code;
    if (!Infos || Num <= 0 || !Callbacks) return ASE_InvalidParameter;
    if (Stream) return Owner == Caller ? ASE_InvalidMode : ASE_NotPresent;
    const TQvTestAsioConfig C = GetConfig();
    if (!SizeAccepted(C, Size)) return ASE_InvalidMode;
    const int32_t Inputs = TableCount(C.InputCount);
    const int32_t Outputs = TableCount(C.OutputCount);
    uint32_t InMask = 0, OutMask = 0;
    for (int32_t I = 0; I < Num; ++I) {
      const bool IsInput = Infos[I].isInput != ASIOFalse;
      const int32_t Channel = Infos[I].channelNum;
      uint32_t& Mask = IsInput ? InMask : OutMask;
      if (Channel < 0 || Channel >= (IsInput ? Inputs : Outputs) || (Mask >> Channel) & 1u) return ASE_InvalidMode;
      Mask |= 1u << Channel;
    }
    PruneRetired();
    std::unique_ptr<TStream> S;
    try {
      S = std::make_unique<TStream>();
      S->BufferSize = Size;
      S->Callbacks = Callbacks;
      S->CaptureSwitches = C.CaptureFrames / Size;
      S->Params = ParamsOf(C);
      S->Channels.resize(size_t(Num));
      for (int32_t I = 0; I < Num; ++I) {
        TStreamChannel& Ch = S->Channels[size_t(I)];
        Ch.IsInput = Infos[I].isInput != ASIOFalse;
        Ch.Channel = Infos[I].channelNum;
        Ch.Type = (Ch.IsInput ? C.Inputs : C.Outputs)[Ch.Channel].Type;
        Ch.HalfBytes = QvTestAsioHalfBytes(Ch.Type, Size);
        const int64_t CaptureBytes = Ch.IsInput ? 0 : S->CaptureSwitches * Ch.HalfBytes;
        S->Blocks.emplace_back(new uint8_t[size_t(2 * Ch.HalfBytes + CaptureBytes)]);
        uint8_t* Block = S->Blocks.back().get();
        std::memset(Block, Ch.IsInput ? 0 : C.OutputFill, size_t(2 * Ch.HalfBytes));
        std::memset(Block + 2 * Ch.HalfBytes, 0, size_t(CaptureBytes));
        Ch.Halves[0] = Block;
        Ch.Halves[1] = Block + Ch.HalfBytes;
        Ch.Capture = Ch.IsInput ? nullptr : Block + 2 * Ch.HalfBytes;
      }
    } catch (...) {
      return ASE_NoMemory;
    }
    for (int32_t I = 0; I < Num; ++I) {
      Infos[I].buffers[0] = S->Channels[size_t(I)].Halves[0];
      Infos[I].buffers[1] = S->Channels[size_t(I)].Halves[1];
    }
    Counters.StreamInputs = int32_t(std::count_if(S->Channels.begin(), S->Channels.end(),
                                                  [](const TStreamChannel& Ch) { return Ch.IsInput; }));
    Counters.StreamOutputs = Num - Counters.StreamInputs;
    Counters.CapturedSwitches = 0;
    Stream = std::move(S);
    Owner = Caller;
    ActiveInputs = InMask;
    ActiveOutputs = OutMask;
    Counters.BuffersCreated = 1;
    // As real drivers do: ask once whether the host takes time info.
    TStream* Made = Stream.get();
    Counters.TimeInfoAnswer = -1;
    if (!(C.Behaviours & qvbNoTimeInfoQuery) && Callbacks->asioMessage) {
      const int32_t Answer = Callbacks->asioMessage(kAsioSupportsTimeInfo, 0, nullptr, nullptr);
      Counters.TimeInfoAnswer = Answer;
      Made->TimeInfo = Answer == 1;
    }
    if ((C.Behaviours & qvbSwitchDuringCreateBuffers) && Stream.get() == Made)
      SpawnOddSwitch(*Made, 0, 0, Made->Params);
    return ASE_OK;
  }

  TASIOError DisposeBuffers(const void* Caller) {
    if (OnDriverThread) return ASE_InvalidMode;
    std::unique_lock<std::recursive_mutex> L(StreamLock);
    ++Counters.DisposeBuffersCalls;
    if (const int32_t Code = Injected(qvmDisposeBuffers)) return Code;
    if (!Stream || Owner != Caller) return ASE_InvalidMode;
    JoinThread();
    Dispose();
    return ASE_OK;
  }

  TASIOError Start(const void* Caller) {
    if (OnDriverThread) return ASE_InvalidMode;
    std::unique_lock<std::recursive_mutex> L(StreamLock);
    ++Counters.StartCalls;
    if (const int32_t Code = Injected(qvmStart)) return Code;
    if (!Stream || Owner != Caller) return ASE_NotPresent;
    if (Thread.joinable()) return ASE_OK;
    const TQvTestAsioConfig C = GetConfig();
    if (C.Pacing == qvpRealTime && !(C.CurrentRate > 0)) return ASE_NoClock;
    TStream& S = *Stream;
    S.Params = ParamsOf(C);
    S.NextIndex = 0;
    S.NextPosition = 0;
    {
      std::lock_guard<std::mutex> W(WakeLock);
      StopRequested = false;
      Permits = 0;
    }
    try {
      Thread = std::thread([this, &S] { Run(S); });
    } catch (...) {
      return ASE_HWMalfunction;
    }
    ++Busy;
    Counters.ThreadRunning = 1;
    Counters.Running = 1;
    if ((C.Behaviours & qvbResetRequestOnStart) && S.Callbacks->asioMessage) {
      ++Counters.ResetRequests;
      S.Callbacks->asioMessage(kAsioResetRequest, 0, nullptr, nullptr);
    }
    return ASE_OK;
  }

  TASIOError Stop(const void* Caller) {
    if (OnDriverThread) return ASE_InvalidMode;
    std::unique_lock<std::recursive_mutex> L(StreamLock);
    ++Counters.StopCalls;
    if (const int32_t Code = Injected(qvmStop)) return Code;
    if (!Stream || Owner != Caller || !Thread.joinable()) return ASE_OK;
    JoinThread();
    if (Stream->Params.Behaviours & qvbSwitchDuringStop)
      SpawnOddSwitch(*Stream, Stream->NextIndex, Stream->NextPosition, Stream->Params);
    return ASE_OK;
  }

  // A driver object goes away: whatever it still holds is stopped and freed.
  // (Released from its own callback, the driver thread cannot be waited for:
  // the stream then stays until QvTestAsioReset.)
  void Abandon(const void* Caller) {
    if (OnDriverThread) return;
    std::unique_lock<std::recursive_mutex> L(StreamLock);
    if (!Stream || Owner != Caller) return;
    JoinThread();
    Dispose();
  }

  void Reset() {
    std::unique_lock<std::recursive_mutex> L(StreamLock);
    if (Stream) {
      JoinThread();
      Dispose();
    }
    PruneRetired();
    TQvTestAsioConfig C;
    MakeDefaultConfig(Slot, C);
    SetConfig(C);
    for (int32_t M = 0; M < qvmCount; ++M) SetFailure(TQvTestAsioMethod(M), 0, 0);
    Counters.Clear();
  }

  int64_t ReadCapture(int32_t Channel, void* Dest, int64_t MaxBytes) {
    std::unique_lock<std::recursive_mutex> L(StreamLock);
    if (!Stream) return -1;
    for (const TStreamChannel& Ch : Stream->Channels) {
      if (Ch.IsInput || Ch.Channel != Channel) continue;
      const int64_t Held = Counters.CapturedSwitches.load(std::memory_order_acquire) * Ch.HalfBytes;
      const int64_t Bytes = std::max<int64_t>(0, std::min(Held, MaxBytes));
      if (Bytes) std::memcpy(Dest, Ch.Capture, size_t(Bytes));
      return Bytes;
    }
    return -1;
  }

  // A message to the host: posted to the driver thread while it runs, sent
  // at once from the calling thread otherwise.
  TASIOError SendMessage(int32_t Selector, int32_t Value, int32_t* Answer) {
    std::unique_lock<std::recursive_mutex> L(StreamLock);
    if (!Stream || !Stream->Callbacks->asioMessage) return ASE_NotPresent;
    if (Thread.joinable()) {
      {
        std::lock_guard<std::mutex> W(WakeLock);
        if (MessagePending) return ASE_InvalidMode;
        MessagePending = true;
        PendingSelector = Selector;
        PendingValue = Value;
      }
      Wake.notify_all();
      return ASE_OK;
    }
    const int32_t Result = Send(*Stream, Selector, Value);
    if (Answer) *Answer = Result;
    return ASE_OK;
  }

  void Step(int32_t Switches) {
    {
      std::lock_guard<std::mutex> W(WakeLock);
      Permits += Switches;
    }
    Wake.notify_all();
  }

 private:
  std::mutex ConfigLock;
  TQvTestAsioConfig Config;
  std::atomic<bool> OutputReadySupported{false};
  TFailure Failures[qvmCount];
  std::atomic<uint32_t> ActiveInputs{0}, ActiveOutputs{0};

  // Recursive: a host may call stop from the asioMessage that start sends.
  std::recursive_mutex StreamLock;
  std::unique_ptr<TStream> Stream;
  std::vector<std::unique_ptr<TStream>> Retired;  // disposed while oddity threads used them
  const void* Owner = nullptr;
  std::thread Thread;

  std::mutex WakeLock;
  std::condition_variable Wake;
  std::atomic<bool> StopRequested{false};
  std::atomic<int64_t> Permits{0};  // changed under WakeLock; read without it while spinning
  bool MessagePending = false;  // under WakeLock, with the two below
  int32_t PendingSelector = 0;
  int32_t PendingValue = 0;

  std::atomic<uint32_t> LatchSequence{0};
  std::atomic<uint64_t> LatchedPosition{0}, LatchedTime{0};

  // Under ConfigLock.
  bool RateKnown(TASIOSampleRate Rate) const {
    for (int32_t I = 0; I < Config.RateCount; ++I)
      if (Config.Rates[I] == Rate) return true;
    return false;
  }

  static bool SizeAccepted(const TQvTestAsioConfig& C, int32_t Size) {
    if (C.Behaviours & qvbAnyBufferSize) return Size >= 1 && Size <= QvTestAsioMaxBufferSize;
    if (Size < C.MinSize || Size > C.MaxSize) return false;
    if (C.Granularity > 0) return (Size - C.MinSize) % C.Granularity == 0;
    if (C.Granularity < 0) return (Size & (Size - 1)) == 0;
    return true;
  }

  static TSwitchParams ParamsOf(const TQvTestAsioConfig& C) {
    TSwitchParams P;
    P.Rate = C.CurrentRate;
    P.Pacing = C.Pacing;
    P.Behaviours = C.Behaviours;
    P.DirectProcess = C.DirectProcess;
    P.MaxSwitches = C.MaxSwitches;
    P.RawPatternBytes = C.RawPatternBytes;
    std::memcpy(P.RawPattern, C.RawPattern, sizeof(P.RawPattern));
    return P;
  }

  // Under StreamLock. Ends the driver thread, if any, and waits for it.
  void JoinThread() {
    if (!Thread.joinable()) return;
    {
      std::lock_guard<std::mutex> W(WakeLock);
      StopRequested = true;
    }
    Wake.notify_all();
    Thread.join();
    MessagePending = false;
    --Busy;
    Counters.ThreadRunning = 0;
    Counters.Running = 0;
  }

  // Under StreamLock, with no driver thread.
  void Dispose() {
    if (Stream->OddUsers.load() > 0)
      Retired.push_back(std::move(Stream));
    else
      Stream.reset();
    Owner = nullptr;
    ActiveInputs = 0;
    ActiveOutputs = 0;
    Counters.BuffersCreated = 0;
  }

  void PruneRetired() {
    Retired.erase(std::remove_if(Retired.begin(), Retired.end(),
                                 [](const std::unique_ptr<TStream>& S) { return S->OddUsers.load() == 0; }),
                  Retired.end());
  }

  static void FillInputs(TStream& S, int32_t Index, uint64_t Position, const TSwitchParams& P) {
    for (TStreamChannel& Ch : S.Channels) {
      if (!Ch.IsInput) continue;
      uint8_t* Out = Ch.Halves[Index];
      if (P.RawPatternBytes > 0) {
        for (int64_t B = 0; B < Ch.HalfBytes; ++B) Out[B] = P.RawPattern[B % P.RawPatternBytes];
        continue;
      }
      const int32_t Bytes = QvTestAsioSampleBytes(Ch.Type);
      if (!Bytes) {
        std::memset(Out, 0x69, size_t(Ch.HalfBytes));
        continue;
      }
      for (int32_t K = 0; K < S.BufferSize; ++K)
        QvTestAsioEncode(Ch.Type, QvTestAsioSignal(Ch.Channel, Position + uint64_t(K)), Out + int64_t(K) * Bytes);
    }
  }

  // Calls the host for one switch; answers whether it went through time info.
  static bool CallHost(TStream& S, TASIOTime& Time, int32_t Index, uint64_t Position, const TSwitchParams& P) {
    TASIOCallbacks* C = S.Callbacks;
    const bool TimeInfo = (S.TimeInfo || (P.Behaviours & qvbForceTimeInfo)) && C->bufferSwitchTimeInfo;
    if (TimeInfo) {
      std::memset(&Time, 0, sizeof(Time));
      Time.timeInfo.speed = 1.0;
      Time.timeInfo.systemTime = ASIOTimeStampFrom(NowNanoseconds());
      Time.timeInfo.samplePosition = ASIOSamplesFrom(Position);
      Time.timeInfo.sampleRate = P.Rate;
      Time.timeInfo.flags = kSystemTimeValid | kSamplePositionValid | kSampleRateValid;
      C->bufferSwitchTimeInfo(&Time, Index, P.DirectProcess);
    } else if (C->bufferSwitch) {
      C->bufferSwitch(Index, P.DirectProcess);
    }
    return TimeInfo;
  }

  void Latch(uint64_t Position) {
    const uint32_t Sequence = LatchSequence.load();
    LatchSequence.store(Sequence + 1);
    LatchedPosition.store(Position);
    LatchedTime.store(NowNanoseconds());
    LatchSequence.store(Sequence + 2);
  }

  // One switch of the driver thread.
  void Deliver(TStream& S, int64_t Number) {
    const TSwitchParams& P = S.Params;
    const int32_t Index = (P.Behaviours & qvbAlwaysIndexZero) ? 0 : S.NextIndex;
    const uint64_t Position = S.NextPosition;
    FillInputs(S, Index, Position, P);
    Latch(Position);
    const bool TimeInfo = CallHost(S, S.Time, Index, Position, P);
    if (S.Captured < S.CaptureSwitches) {
      for (TStreamChannel& Ch : S.Channels)
        if (!Ch.IsInput) std::memcpy(Ch.Capture + S.Captured * Ch.HalfBytes, Ch.Halves[Index], size_t(Ch.HalfBytes));
      ++S.Captured;
      Counters.CapturedSwitches.store(S.Captured, std::memory_order_release);
    }
    Counters.LastIndex = Index;
    Counters.SamplePosition = int64_t(Position);
    if (TimeInfo) ++Counters.TimeInfoSwitches;
    ++Counters.Switches;
    S.NextIndex ^= 1;
    S.NextPosition = Position + uint64_t(S.BufferSize);
    if ((P.Behaviours & qvbFalseRateChange) && Number == 0 && S.Callbacks->sampleRateDidChange) {
      ++Counters.SampleRateChanges;
      S.Callbacks->sampleRateDidChange(P.Rate);
    }
  }

  int32_t Send(TStream& S, int32_t Selector, int32_t Value) {
    const int32_t Answer = S.Callbacks->asioMessage(Selector, Value, nullptr, nullptr);
    Counters.LastMessageAnswer = Answer;
    ++Counters.MessagesSent;
    return Answer;
  }

  // Driver thread: waits until Due (nullptr: no time limit) or, with
  // NeedPermit, for a permit it then takes, sending posted messages
  // meanwhile. True when the thread is to end.
  bool Wait(TStream& S, const std::chrono::steady_clock::time_point* Due, bool NeedPermit) {
    // A permit that follows soon is taken without sleeping: the step that a
    // stepping host makes reaches the switch in well under a microsecond
    // instead of through the scheduler.
    if (NeedPermit && !Due)
      for (int I = 0; I < PermitSpins && Permits.load(std::memory_order_acquire) <= 0 && !StopRequested.load(); ++I)
        CpuRelax();
    std::unique_lock<std::mutex> W(WakeLock);
    const auto Ready = [&] { return StopRequested.load() || MessagePending || (NeedPermit && Permits > 0); };
    for (;;) {
      if (Due) {
        if (!Wake.wait_until(W, *Due, Ready)) return false;
      } else {
        Wake.wait(W, Ready);
      }
      if (StopRequested) return true;
      if (MessagePending) {
        MessagePending = false;
        const int32_t Selector = PendingSelector, Value = PendingValue;
        W.unlock();
        Send(S, Selector, Value);
        W.lock();
        continue;
      }
      --Permits;
      return false;
    }
  }

  void Run(TStream& S) {
    OnDriverThread = true;
    const TSwitchParams& P = S.Params;
    const std::chrono::duration<double> Period(double(S.BufferSize) / (P.Rate > 0 ? P.Rate : 1.0));
    const auto Begin = std::chrono::steady_clock::now();
    for (int64_t Number = 0;; ++Number) {
      if (P.MaxSwitches > 0 && Number >= P.MaxSwitches) {
        Wait(S, nullptr, false);
        return;
      }
      if (P.Pacing == qvpRealTime) {
        const auto Due =
            Begin + std::chrono::duration_cast<std::chrono::steady_clock::duration>(Period * double(Number + 1));
        if (Wait(S, &Due, false)) return;
      } else if (P.Pacing == qvpManual) {
        if (Wait(S, nullptr, true)) return;
      } else {
        const auto Now = std::chrono::steady_clock::now();
        if (Wait(S, &Now, false)) return;
        if (Number) std::this_thread::yield();
      }
      Deliver(S, Number);
    }
  }

  // Under StreamLock. Calls the host once from a thread of its own and waits
  // for that call to return, so that it always falls inside the driver call
  // that made it. A host that holds, until we return, a lock its callback
  // needs would deadlock: after OddSwitchPatience the thread is left to finish
  // on its own.
  void SpawnOddSwitch(TStream& S, int32_t Index, uint64_t Position, const TSwitchParams& P) {
    struct TDone {
      std::mutex Lock;
      std::condition_variable Cond;
      bool Returned = false;
    };
    std::shared_ptr<TDone> Done;
    ++S.OddUsers;
    ++Busy;
    ++Counters.OddThreadsRunning;
    try {
      Done = std::make_shared<TDone>();
      std::thread([this, &S, Index, Position, P, Done] {
        OnDriverThread = true;
        TASIOTime Time;
        FillInputs(S, Index, Position, P);
        CallHost(S, Time, Index, Position, P);
        ++Counters.OddSwitches;
        --Counters.OddThreadsRunning;
        --S.OddUsers;
        --Busy;
        std::lock_guard<std::mutex> G(Done->Lock);
        Done->Returned = true;
        Done->Cond.notify_all();
      }).detach();
    } catch (...) {
      --Counters.OddThreadsRunning;
      --S.OddUsers;
      --Busy;
      return;
    }
    std::unique_lock<std::mutex> G(Done->Lock);
    Done->Cond.wait_for(G, OddSwitchPatience, [&] { return Done->Returned; });
  }
};

// Devices live as long as the process: driver threads that a host never
// stopped must not find them destroyed at exit.
TDevice* Device(int32_t Slot) {
  static TDevice* const Devices[QvTestAsioDriverCount] = {new TDevice(0), new TDevice(1)};
  return Slot >= 0 && Slot < QvTestAsioDriverCount ? Devices[Slot] : nullptr;
}

// A driver object: reference counted, answering IUnknown and its CLSID.
class TDriver final : public IASIO {
 public:
  explicit TDriver(TDevice& Owner) : D(Owner) {
    ++Busy;
    ++D.Counters.LiveObjects;
  }
  TDriver(const TDriver&) = delete;
  TDriver& operator=(const TDriver&) = delete;

  int32_t QueryInterface(const TGUID& Iid, void** Obj) noexcept override {
    if (!Obj) return ResultPointer;
    if (SameGuid(Iid, IidIUnknown) || SameGuid(Iid, QvTestAsioClsids[D.Slot])) {
      *Obj = static_cast<IASIO*>(this);
      AddRef();
      return ResultOk;
    }
    *Obj = nullptr;
    return ResultNoInterface;
  }
  uint32_t AddRef() noexcept override { return ++References; }
  uint32_t Release() noexcept override {
    const uint32_t Left = --References;
    if (Left == 0) delete this;
    return Left;
  }

  TASIOBool init(void* SysHandle) noexcept override { return D.Init(SysHandle); }
  void getDriverName(char* Name) noexcept override { D.GetDriverName(Name); }
  int32_t getDriverVersion() noexcept override { return D.GetDriverVersion(); }
  void getErrorMessage(char* Text) noexcept override { D.GetErrorMessage(Text); }
  TASIOError start() noexcept override { return D.Start(this); }
  TASIOError stop() noexcept override { return D.Stop(this); }
  TASIOError getChannels(int32_t* Inputs, int32_t* Outputs) noexcept override { return D.GetChannels(Inputs, Outputs); }
  TASIOError getLatencies(int32_t* Input, int32_t* Output) noexcept override { return D.GetLatencies(Input, Output); }
  TASIOError getBufferSize(int32_t* Min, int32_t* Max, int32_t* Preferred, int32_t* Granularity) noexcept override {
    return D.GetBufferSize(Min, Max, Preferred, Granularity);
  }
  TASIOError canSampleRate(TASIOSampleRate Rate) noexcept override { return D.CanSampleRate(Rate); }
  TASIOError getSampleRate(TASIOSampleRate* Rate) noexcept override { return D.GetSampleRate(Rate); }
  TASIOError setSampleRate(TASIOSampleRate Rate) noexcept override { return D.SetSampleRate(Rate); }
  TASIOError getClockSources(TASIOClockSource* Clocks, int32_t* NumSources) noexcept override {
    return D.GetClockSources(Clocks, NumSources);
  }
  TASIOError setClockSource(int32_t Reference) noexcept override { return D.SetClockSource(Reference); }
  TASIOError getSamplePosition(TASIOSamples* Position, TASIOTimeStamp* Stamp) noexcept override {
    return D.GetSamplePosition(Position, Stamp);
  }
  TASIOError getChannelInfo(TASIOChannelInfo* Info) noexcept override { return D.GetChannelInfo(Info); }
  TASIOError createBuffers(TASIOBufferInfo* Infos, int32_t Num, int32_t Size,
                           TASIOCallbacks* Callbacks) noexcept override {
    return D.CreateBuffers(this, Infos, Num, Size, Callbacks);
  }
  TASIOError disposeBuffers() noexcept override { return D.DisposeBuffers(this); }
  TASIOError controlPanel() noexcept override { return D.ControlPanel(); }
  TASIOError future(int32_t Selector, void* Opt) noexcept override { return D.Future(Selector, Opt); }
  TASIOError outputReady() noexcept override { return D.OutputReady(); }

 private:
  ~TDriver() {
    D.Abandon(this);
    --D.Counters.LiveObjects;
    --Busy;
  }

  TDevice& D;
  std::atomic<uint32_t> References{1};
};

}  // namespace
}  // namespace Quorvel

using namespace Quorvel;

extern "C" {

int32_t QvTestAsioDefaultConfig(int32_t Slot, TQvTestAsioConfig* Config) noexcept {
  if (!Device(Slot) || !Config) return ASE_InvalidParameter;
  MakeDefaultConfig(Slot, *Config);
  return ASE_OK;
}

int32_t QvTestAsioGetConfig(int32_t Slot, TQvTestAsioConfig* Config) noexcept {
  TDevice* D = Device(Slot);
  if (!D || !Config) return ASE_InvalidParameter;
  *Config = D->GetConfig();
  return ASE_OK;
}

int32_t QvTestAsioSetConfig(int32_t Slot, const TQvTestAsioConfig* Config) noexcept {
  TDevice* D = Device(Slot);
  if (!D || !Config || !ConfigValid(*Config)) return ASE_InvalidParameter;
  D->SetConfig(*Config);
  return ASE_OK;
}

int32_t QvTestAsioSetFailure(int32_t Slot, int32_t Method, int32_t Code, int32_t AfterCalls) noexcept {
  TDevice* D = Device(Slot);
  if (!D || Method < 0 || Method >= qvmCount) return ASE_InvalidParameter;
  D->SetFailure(TQvTestAsioMethod(Method), Code, AfterCalls);
  return ASE_OK;
}

int32_t QvTestAsioReset(int32_t Slot) noexcept {
  TDevice* D = Device(Slot);
  if (!D) return ASE_InvalidParameter;
  D->Reset();
  return ASE_OK;
}

int32_t QvTestAsioGetStats(int32_t Slot, TQvTestAsioStats* Stats) noexcept {
  TDevice* D = Device(Slot);
  if (!D || !Stats) return ASE_InvalidParameter;
  const TCounters& C = D->Counters;
  TQvTestAsioStats& S = *Stats;
  S.LiveObjects = C.LiveObjects;
  S.InitCalls = C.InitCalls;
  S.SysHandle = C.SysHandle;
  S.CreateBuffersCalls = C.CreateBuffersCalls;
  S.DisposeBuffersCalls = C.DisposeBuffersCalls;
  S.StartCalls = C.StartCalls;
  S.StopCalls = C.StopCalls;
  S.ControlPanelCalls = C.ControlPanelCalls;
  S.FutureCalls = C.FutureCalls;
  S.OutputReadyCalls = C.OutputReadyCalls;
  S.BuffersCreated = C.BuffersCreated;
  S.Running = C.Running;
  S.ThreadRunning = C.ThreadRunning;
  S.OddThreadsRunning = C.OddThreadsRunning;
  S.RequestedBufferSize = C.RequestedBufferSize;
  S.TimeInfoAnswer = C.TimeInfoAnswer;
  S.StreamInputs = C.StreamInputs;
  S.StreamOutputs = C.StreamOutputs;
  S.Switches = C.Switches;
  S.TimeInfoSwitches = C.TimeInfoSwitches;
  S.OddSwitches = C.OddSwitches;
  S.LastIndex = C.LastIndex;
  S.SamplePosition = C.SamplePosition;
  S.CapturedSwitches = C.CapturedSwitches;
  S.SampleRateChanges = C.SampleRateChanges;
  S.ResetRequests = C.ResetRequests;
  S.MessagesSent = C.MessagesSent;
  S.LastMessageAnswer = C.LastMessageAnswer;
  return ASE_OK;
}

int64_t QvTestAsioReadCapture(int32_t Slot, int32_t OutputChannel, void* Dest, int64_t MaxBytes) noexcept {
  TDevice* D = Device(Slot);
  if (!D || (!Dest && MaxBytes > 0)) return -1;
  return D->ReadCapture(OutputChannel, Dest, MaxBytes);
}

int32_t QvTestAsioSendMessage(int32_t Slot, int32_t Selector, int32_t Value, int32_t* Answer) noexcept {
  TDevice* D = Device(Slot);
  if (!D) return ASE_InvalidParameter;
  return D->SendMessage(Selector, Value, Answer);
}

int32_t QvTestAsioStep(int32_t Slot, int32_t Switches) noexcept {
  TDevice* D = Device(Slot);
  if (!D || Switches < 0) return ASE_InvalidParameter;
  D->Step(Switches);
  return ASE_OK;
}

IASIO* QvTestAsioCreate(int32_t Slot) noexcept {
  TDevice* D = Device(Slot);
  return D ? new (std::nothrow) TDriver(*D) : nullptr;
}

int32_t QvTestAsioBusyCount(void) noexcept { return Busy.load(); }

}  // extern "C"
