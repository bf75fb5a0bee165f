// TSRASIOAudioDevice: one ASIO driver as a component. Every enabled input
// channel of the driver produces audio on a source pin of its own, every
// enabled output channel consumes audio from a sink pin of its own.
//
// Threads:
// - Open, Close, Start, Stop and the properties belong to the main thread;
//   they run under the component's lock (the change lock).
// - The driver calls back on a thread of its own. The buffer exchange runs
//   there under the exchange lock, which only Start and Stop take besides
//   it, and only briefly: Stop never holds it while it waits for the driver
//   to stop, so a driver that joins its thread in stop() cannot deadlock.
//   The exchange converts each input channel's half-buffer into a pooled
//   audio buffer, queues it, and serves each output channel from its queue;
//   in steady state it allocates nothing and waits for nobody.
// - Input audio reaches the pins on the component's processing thread.
//   Each channel item has a lock of its own for its pin, so the work
//   downstream of an input pin never holds up the driver thread.
// - A reset request from the driver stops the device on the main thread
//   (queued; on Windows the message loop runs it, elsewhere
//   Threading::ProcessMainThreadQueue).
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "asio/Asiointerface.h"
#include "asio/Srasiodevice.h"
#include "frame/Wbcomponent.h"

namespace Quorvel {

class TSRASIOAudioDevice;

// The counters of the running stream (TSRASIOAudioDeviceStats), which the
// device and its channel items add to on their threads.
struct TSRASIOStreamCounters {
  std::atomic<uint64_t> Switches{0}, Skipped{0}, Inputs{0}, Submitted{0}, Outputs{0}, Lost{0}, Dropped{0};
  void Reset();
};


// A FIFO of mono audio buffers with the samples it holds and the read offset
// into the head buffer, for one producer thread and one consumer thread: a
// ring of fixed capacity with atomic head and tail, so that neither side
// locks, waits or allocates. Reserve and Clear belong to the main thread
// while neither side runs (stream stopped, or both excluded by the channel's
// pin lock and a closed exchange).
class TSRASIOAudioQueue {
 public:
  TSRASIOAudioQueue();
  TSRASIOAudioQueue(const TSRASIOAudioQueue&) = delete;
  TSRASIOAudioQueue& operator=(const TSRASIOAudioQueue&) = delete;

  // [main thread, stream stopped] Makes room for at least Buffers buffers.
  void Reserve(size_t Buffers);
  size_t GetCapacity() const { return FRing.size(); }
  // [producer] Appends Buffer (the queue keeps a reference) and adds its
  // samples to the total; false, keeping nothing, when the queue is full.
  bool Push(const ISRAudioBufferRef& Buffer);
  // [consumer] Fills Target exactly: false, taking nothing, when fewer
  // samples are held than Target has. Samples are converted to Target's width.
  bool Pop(ISRAudioBuffer& Target);
  // [consumer] Takes the head buffer whole (from the read offset on); null when empty.
  ISRAudioBufferRef PopBuffer();
  // [main thread, stream stopped] Empties the queue and resets both counters.
  void Clear();
  size_t GetTotal() const { return FTotal.load(std::memory_order_acquire); }  // [any thread] samples held
  size_t GetReadOffset() const { return FOffset.load(std::memory_order_relaxed); }  // [any thread]
  size_t GetCount() const;  // [any thread] buffers held

 private:
  std::vector<ISRAudioBufferRef> FRing;
  std::atomic<size_t> FHead{0};    // next slot to read (consumer)
  std::atomic<size_t> FTail{0};    // next slot to write (producer)
  std::atomic<size_t> FTotal{0};   // samples held, from the read offset on
  std::atomic<size_t> FOffset{0};  // into the head buffer (consumer)
};

// Audio buffers of one channel that a running stream reuses: a buffer is
// handed out again once nobody else holds it, so that the stream's threads
// allocate nothing. Made and cleared on the main thread while the stream is
// not running; Take belongs to the one thread that fills the channel's buffers.
class TSRASIOBufferRing {
 public:
  // [main thread] Count buffers of Capacity mono samples of Bits bits.
  void Make(size_t Count, size_t Capacity, unsigned Bits, double SampleRate);
  void Clear();  // [main thread]
  unsigned GetBits() const { return FBits; }
  // [producer] A buffer of Samples samples that nobody else holds; null when
  // every buffer is still in use or Samples exceeds the capacity.
  ISRAudioBufferRef Take(size_t Samples) noexcept;

 private:
  std::vector<ISRAudioBufferRef> FSlots;
  size_t FNext = 0;
  size_t FCapacity = 0;
  unsigned FBits = 0;
};

// "Use the driver's current rate, or set this one."
class TSRASIOSampleRate : public TWBPersistent {
 public:
  explicit TSRASIOSampleRate(TWBComponent* Owner) : TWBPersistent(Owner) {}
  bool GetUseCurrent() const;        // [main thread] default false
  void SetUseCurrent(bool Value);
  double GetRate() const;            // [main thread] default 44100
  void SetRate(double Value);        // 0 or below stores 44100
  bool Assign(const TWBPersistent& Source) override;

 private:
  bool FUseCurrent = false;
  double FRate = 44100.0;
};

// "Use the driver's current clock, or select this one."
class TSRASIOClockSource : public TWBPersistent {
 public:
  explicit TSRASIOClockSource(TWBComponent* Owner) : TWBPersistent(Owner) {}
  bool GetUseCurrent() const;        // [main thread] default false
  void SetUseCurrent(bool Value);
  int32_t GetActiveIndex() const;    // [main thread] the index passed to the driver (default 0)
  void SetActieveIndex(int32_t Value);
  // [main thread] The driver's clock sources as read when it was opened.
  std::vector<TASIOClockSource> GetSources() const;
  // [main thread] The device sets them when it opens the driver.
  void SetSources(std::vector<TASIOClockSource> Sources);
  bool Assign(const TWBPersistent& Source) override;

 private:
  bool FUseCurrent = false;
  int32_t FIndex = 0;
  std::vector<TASIOClockSource> FSources;
};

// The buffer size asked of the driver and the driver's limits.
class TSRASIOBufferSize : public TWBPersistent {
 public:
  explicit TSRASIOBufferSize(TWBComponent* Owner) : TWBPersistent(Owner) {}
  bool GetUsePreferred() const;      // [main thread] default true
  void SetUsePreferred(bool Value);
  uint32_t GetBufferSize() const;    // [main thread] default 256
  void SetBufferSize(uint32_t Value);
  // The driver's values, read when it is opened (0 before).
  int32_t GetMin() const;
  int32_t GetMax() const;
  int32_t GetPreferred() const;
  int32_t GetGranularity() const;
  // The size passed to the driver at the latest start (0 before).
  int32_t GetRunningSize() const;
  // The size the next start asks for: Preferred or BufferSize, limited to
  // Min..Max, then down to Min + a whole number of Granularity steps when
  // Granularity > 1 (-1, the powers-of-two mode, 0 and 1 leave it).
  int32_t CalculateSize() const;
  // [main thread] The device sets the driver's values when it opens the
  // driver, and the running size when it starts.
  void SetDriverLimits(int32_t Min, int32_t Max, int32_t Preferred, int32_t Granularity);
  void SetRunningSize(int32_t Size) { FRunningSize = Size; }
  bool Assign(const TWBPersistent& Source) override;

 private:
  bool FUsePreferred = true;
  uint32_t FBufferSize = 256;
  int32_t FMin = 0, FMax = 0, FPreferred = 0, FGranularity = 0;
  std::atomic<int32_t> FRunningSize{0};
};

// One channel of the device. Items are made and destroyed by their
// collection, on the main thread, while the device does not run.
class TSRASIOChannelItem : public TWBPersistent, public IPWPinOwner {
 public:
  explicit TSRASIOChannelItem(TSRASIOAudioDevice& Device);
  ~TSRASIOChannelItem() override;

  TSRASIOAudioDevice& GetDevice() const { return FDevice; }
  bool GetEnabled() const { return FEnabled.load(); }   // [any thread] default true
  void SetEnabled(bool Value);                           // [main thread] takes effect at the next start
  bool GetStarted() const { return FStarted.load(); }   // [any thread] part of the running stream
  int GetIndex() const;                                  // [main thread] position = the driver's channel number
  TSRASIOAudioQueue& GetQueue() { return FQueue; }
  bool Assign(const TWBPersistent& Source) override;

  // IPWPinOwner: the item's pin has a lock of its own.
  Threading::ICriticalSection& GetPinLock() override { return FPinLock; }
  std::string GetPinOwnerName() const override;
  bool IsPinOwnerDestroying() const override { return FDestroying.load(); }

 protected:
  virtual bool IsInput() const = 0;
  TSRASIOStreamCounters& Counters();  // the device's
  TSRASIOAudioDevice& FDevice;
  Threading::TCriticalSection FPinLock;
  TSRASIOAudioQueue FQueue;
  std::atomic<bool> FEnabled{true};
  std::atomic<bool> FStarted{false};
  std::atomic<bool> FDestroying{false};
};

class TSRASIOInputChannelItem : public TSRASIOChannelItem {
 public:
  explicit TSRASIOInputChannelItem(TSRASIOAudioDevice& Device);
  ~TSRASIOInputChannelItem() override;
  // The pin this channel's audio leaves the device on.
  TSRPWAudioSourcePin& GetOutputPin() { return *FPin; }
  // [processing thread] Submits every queued buffer to the pin, in order.
  void NewThreadAudio();
  // [driver thread] Submits Buffer to the pin at once (ProcessOnDriverThread).
  void SubmitNow(const ISRAudioBufferRef& Buffer);
  // [main thread] The device starts the channel: an empty queue, and the
  // format announced on the pin.
  void BeginStream(const TSRWaveFormatExtensible& Format);
  // [main thread] The device ends the channel's stream: a started channel
  // drops what it still holds and sends a stop on its pin.
  void EndStream();

 protected:
  bool IsInput() const override { return true; }

 private:
  std::unique_ptr<TSRPWAudioSourcePin> FPin;
};

class TSRASIOOutputChannelItem : public TSRASIOChannelItem {
 public:
  explicit TSRASIOOutputChannelItem(TSRASIOAudioDevice& Device);
  ~TSRASIOOutputChannelItem() override;
  // The pin this channel's audio enters the device on.
  TSRPWAudioSinkPin& GetInputPin() { return *FPin; }
  // [stream thread] Buffers arriving while the channel is started are queued
  // as pooled mono copies; others are refused.
  void SinkDispatch(TPWBasicPin* SourcePin, TPWBasicPin* SinkPin, TPWOperationID ID, TPWOperation& Operation,
                    TPWNotifyStates& States) override;
  // [driver thread] Asks upstream for more audio when the device pumps and the pin is connected.
  void MasterPump();
  // [driver thread] Whether audio arrived since the stream started (silence
  // before that is expected, not late).
  bool GetPrimed() const { return FPrimed.load(); }
  // [main thread] The device starts the channel with an empty queue.
  void BeginStream();
  // [main thread] Room in the queue, and buffers for the copies of arriving
  // audio, of the width the driver's side takes, with room for at least
  // Samples samples.
  void PrepareCopies(size_t Samples, unsigned Bits, double SampleRate);
  // [main thread] The device ends the channel's stream; arriving audio is refused.
  void EndStream() { FStarted = false; }

 protected:
  bool IsInput() const override { return false; }

 private:
  std::unique_ptr<TSRPWAudioSinkPin> FPin;
  std::atomic<bool> FPrimed{false};  // audio arrived since the stream started
  TSRASIOBufferRing FRing;           // the copies queued for the driver (under the pin lock)
};

// The input or output channels. Adding, deleting or resizing stops a running device first.
template <typename TItem>
class TSRASIOChannelItems : public TWBPersistent {
 public:
  explicit TSRASIOChannelItems(TSRASIOAudioDevice& Device);
  ~TSRASIOChannelItems() override;
  int GetCount() const;                        // [main thread]
  TItem& GetItem(int Index) const;             // [main thread] 0 <= Index < GetCount()
  TItem& Add();                                // [main thread]
  void Delete(int Index);                      // [main thread] ignored out of range
  void SetCount(int Count);                    // [main thread] adds or removes at the end
  void Clear();                                // [main thread]
  int IndexOf(const TSRASIOChannelItem* Item) const;
  // Copies the enabled flags (and the count) of another collection.
  bool Assign(const TWBPersistent& Source) override;

 private:
  TSRASIOAudioDevice& FDevice;
  std::vector<std::unique_ptr<TItem>> FItems;
};

using TSRASIOInputChannelItems = TSRASIOChannelItems<TSRASIOInputChannelItem>;
using TSRASIOOutputChannelItems = TSRASIOChannelItems<TSRASIOOutputChannelItem>;

// A channel the open driver has.
struct TSRASIOAvailableChannel {
  std::string Name;
  bool IsInput = false;
  int32_t Channel = 0;
  TASIOSampleType Type = 0;
  int32_t Group = 0;
};

class TSRASIOAvailableChannels : public TWBPersistent {
 public:
  explicit TSRASIOAvailableChannels(TWBComponent* Owner) : TWBPersistent(Owner) {}
  int GetCount() const { return static_cast<int>(FItems.size()); }
  const TSRASIOAvailableChannel& GetItem(int Index) const { return FItems.at(static_cast<size_t>(Index)); }
  // [main thread] The device sets them when it reads the driver's channels.
  void SetItems(std::vector<TSRASIOAvailableChannel> Items) { FItems = std::move(Items); }

 private:
  std::vector<TSRASIOAvailableChannel> FItems;
};

using TSRASIONotifyEvent = std::function<void(TSRASIOAudioDevice* Sender)>;

// Counters of the running stream, since the latest start.
struct TSRASIOAudioDeviceStats {
  uint64_t Switches = 0;          // buffer exchanges done
  uint64_t SkippedSwitches = 0;   // callbacks outside a running stream or with a bad buffer index
  uint64_t InputBuffers = 0;      // buffers queued from the driver's inputs
  uint64_t SubmittedBuffers = 0;  // of those, submitted to the pins
  uint64_t OutputBuffers = 0;     // buffers that arrived at the output pins
  uint64_t LostBuffers = 0;       // output half-buffers sent silent because the audio for them was late
  uint64_t DroppedBuffers = 0;    // buffers dropped because their channel's queue was full
};

// Where the device is in its life. The driver is held from Open to Close;
// its buffers exist while Starting (from createBuffers on), Running and
// Stopping.
enum class TSRASIODeviceState {
  dsClosed,    // no driver
  dsOpen,      // driver held and its values read; no stream
  dsStarting,  // Start is under way
  dsRunning,   // buffers created and the driver started
  dsStopping,  // Stop is under way, or the driver failed to stop or to dispose
               // its buffers (then until Close, which tries once more)
};

// The device. Its life:
//
// Open [main thread, under the change lock; a busy lock answers false]:
//   1. Get the driver from the device property; init it with the application
//      window (SetApplicationWindow; drivers parent their control panel to it).
//   2. Set the sample rate unless UseCurrent ("Can't set sample rate"); read
//      it back ("Can't get sample rate" is a warning).
//   3. Read the channel counts, refusing any below 0 or above 4096 at their
//      full width ("Can't get channels"), the buffer size limits ("Can't get
//      buffer size"), every channel's information ("Can't get inpit/outpit
//      channel %d info"), latencies (a warning), output-ready support and
//      the clock sources.
//   A failure in 2 or 3 lets the driver go again (its undo guard).
//
// Start [main thread, under the change lock]: true at once while starting or
// running; otherwise Open's answer, whatever happens after it:
//   1. Open; false ends here. A device left stopping finishes that stop first.
//   2. Announce each enabled input on its pin (start-wave with its format)
//      and mark each enabled output started.         undo: stop on the pins
//   3. Select the clock source unless UseCurrent ("Can't release callback").
//   4. List the enabled channels for the driver, inputs first.
//   5. Take a callback entry; it replaces the earlier one and stays taken
//      until Close, also when a later step fails. None free: "Can't get
//      callback", and the driver never sees a null record.
//   6. Work out the buffer size (CalculateSize); below 1 or above 2^20
//      samples: "Can't create buffers".
//   7. createBuffers ("Can't create buffers").         undo: disposeBuffers
//   8. Read the channel information again (failures are warnings).
//   9. Set up the exchange and the channels' buffers, start the driver
//      ("Can't start").                                undo: exchange closed
//   Success: Running and Enabled.
//
// Stop [main thread, under the change lock]; only while running:
//   1. Stopping; close the exchange; stop the driver ("Can't stop": the
//      device stays Stopping). The exchange lock is not held meanwhile: a
//      driver's stop may wait for its thread, which may be calling us.
//   2. End every channel's stream (inputs send a stop on their pins).
//   3. disposeBuffers ("Can't dispose buffers": stays Stopping); Open.
//
// Close [main thread, under the change lock]: Stop; a driver left stopping is
// stopped and disposed once more, quietly; the latest callback entry is
// released (entry 0 for a device that never started, whoever holds it); the
// driver goes.
class TSRASIOAudioDevice : public TWBComponent {
 public:
  // The class's published properties (frame/Wbpersistence.h): the device
  // selector with its alternatives, rate, clock, buffer size, channels,
  // MasterPumping, ProcessOnDriverThread and Enabled (last, so that a device
  // loaded enabled starts in Loaded with everything else in place).
  static const TWBClassInfo& ClassInfo();
  const TWBClassInfo& GetClassInfo() const override { return ClassInfo(); }
  explicit TSRASIOAudioDevice(TWBComponent* Owner = nullptr);
  // The channel items' pins: inputs' sources first, then outputs' sinks.
  std::vector<TPWBasicPin*> GetPublishedPins() const override;
  ~TSRASIOAudioDevice() override;

  // ---- properties [main thread] ----
  TSRASIODevice& GetDevice() { return FDevice; }
  TSRASIOSampleRate& GetSampleRate() { return FSampleRate; }
  TSRASIOClockSource& GetClockSource() { return FClockSource; }
  TSRASIOBufferSize& GetBufferSize() { return FBufferSize; }
  TSRASIOInputChannelItems& GetInputChannels() { return FInputChannels; }
  TSRASIOOutputChannelItems& GetOutputChannels() { return FOutputChannels; }
  bool ShouldStoreInputChannels() const { return FInputChannels.GetCount() > 0; }
  bool ShouldStoreOutputChannels() const { return FOutputChannels.GetCount() > 0; }
  const TSRASIOAvailableChannels& GetAvailableInputChannels() const { return FAvailableInputs; }
  const TSRASIOAvailableChannels& GetAvailableOutputChannels() const { return FAvailableOutputs; }
  // When set, each output channel asks upstream for more audio after every exchange.
  bool GetMasterPumping() const { return FMasterPumping.load(); }
  void SetMasterPumping(bool Value) { FMasterPumping = Value; }
  // When set, the next start hands input audio to the pins on the driver's
  // thread, inside the buffer switch, instead of on the processing thread:
  // one thread hand-off less per switch. Only for chains that neither wait
  // nor allocate nor take contended locks while processing a block (and do
  // not call the device's Stop or Close from it); default false.
  bool GetProcessOnDriverThread() const { return FProcessOnDriverThread.load(); }
  void SetProcessOnDriverThread(bool Value) { FProcessOnDriverThread = Value; }
  // The window handle the driver is given at init (default none). Set it
  // before the device opens: drivers parent their control panel to it.
  void* GetApplicationWindow() const { return FWindow; }
  void SetApplicationWindow(void* Value) { FWindow = Value; }

  // ---- life (see above) ----
  bool Open();                 // [main thread] true when a driver is held
  void Close();                // [main thread]
  bool Start();                // [main thread] answers whether the device is open
  void Stop();                 // [main thread]
  bool GetOpened() const;      // [any thread]
  void SetOpened(bool Value);  // [main thread]
  TSRASIODeviceState GetState() const { return FRun.State.load(); }  // [any thread]
  bool GetRunning() const { return GetState() == TSRASIODeviceState::dsRunning; }  // [any thread]
  // Hides the base's: the device is enabled while it runs (and while a
  // failed stop leaves it stopping). Setting starts or stops it; while
  // loading or designing it only records the wish.
  bool GetEnabled() const;
  void SetEnabled(bool Value);
  // [main thread, stream stopped] Called before a channel collection changes:
  // stops a running device and forgets the channels of the latest stream.
  void ChannelsChanging();

  // ---- the driver [main thread]; each opens the driver if needed ----
  bool CanSampleRate(double Rate);
  bool ShowDialog();
  std::string GetErrorMessage();
  std::string GetDriverName();
  int32_t GetDriverVersion();
  int32_t GetInputLatency();
  int32_t GetOutputLatency();
  bool GetUsesPostOutput();
  double GetRunningSampleRate();
  // Read when the driver was opened.
  int32_t GetRunningSampleRateInt() const { return FIntRate.load(); }
  int32_t GetDriverInputCount() const { return FDriverInputs; }
  int32_t GetDriverOutputCount() const { return FDriverOutputs; }
  // One record per driver channel, inputs first.
  const std::vector<TASIOChannelInfo>& GetChannelInfos() const { return FChannelInfos; }
  // The callback entry of the latest start (0 before any, -1 when none was free).
  int32_t GetCallbackIndex() const { return FRun.CallbackIndex; }
  TSRASIOAudioDeviceStats GetStats() const;  // [any thread]

  // ---- reports ----
  void Error(const std::string& Text, int32_t Code) override;
  void Warning(const std::string& Text, int32_t Code) override;
  static std::string GetErrorMessageFromCode(int32_t Code);
  // 16, 24, 32 or 64 by sample type; 8 for any other type.
  static unsigned BitDepthForType(TASIOSampleType Type);
  // The format announced on an input channel's pin: mono extensible PCM at
  // the integer rate, of the width its buffers have.
  static TSRWaveFormatExtensible MakeChannelFormat(TASIOSampleType Type, int32_t Rate);

  TSRASIONotifyEvent OnResyncRequest;     // [driver thread]
  TSRASIONotifyEvent OnLatenciesChanged;  // [driver thread]

  // ---- driver callbacks [driver thread], reached through the callback entry ----
  void BufferSwitch(int32_t Index, TASIOBool DirectProcess);
  TASIOTime* BufferSwitchTimeInfo(TASIOTime* Params, int32_t Index, TASIOBool DirectProcess);
  void SampleRateDidChange(TASIOSampleRate Rate);
  int32_t AsioMessage(int32_t Selector, int32_t Value, void* Message, double* Opt);

 protected:
  void Loaded() override;

 private:
  friend class TSRASIOChannelItem;  // its channels count into FCounters

  // The run-time state: changed on the main thread under the change lock
  // (State is read on any thread).
  struct TRunState {
    std::atomic<TSRASIODeviceState> State{TSRASIODeviceState::dsClosed};
    std::atomic<bool> EnableWhenLoaded{false};  // Enabled set while loading or designing
    IASIORef Driver;                // from Open to Close
    int32_t CallbackIndex = 0;      // the latest start's entry; Close releases it
    std::vector<TASIOBufferInfo> BufferInfos;
    int32_t EnabledInputs = 0, EnabledOutputs = 0;
  };

  struct TRunChannel {
    TSRASIOChannelItem* Item = nullptr;
    TASIOSampleType Type = 0;
    unsigned Bits = 0;        // audio buffer bits; 0: the channel is not converted
    void* Halves[2] = {nullptr, nullptr};
    ISRAudioBufferRef Scratch;  // outputs: the buffer each exchange pops into
    TSRASIOBufferRing Ring;     // inputs: the buffers each exchange fills
  };

  // What the driver thread works on, guarded by Lock; Active opens and
  // closes it to the driver's callbacks.
  struct TExchange {
    std::mutex Lock;
    bool Active = false;
    bool OnDriverThread = false;  // ProcessOnDriverThread, as the stream started
    IASIO* Driver = nullptr;
    int32_t Size = 0;
    double Rate = 0.0;
    std::vector<TRunChannel> Inputs;
    std::vector<TRunChannel> Outputs;
  };

  bool IntOpen();
  // Reads every channel's information: while starting, failures are
  // warnings and the rest is read; otherwise the first failure's code is
  // answered at once, with its record number (inputs first) in Failed.
  TASIOError ReadChannelInfos(int32_t& Failed);
  void EndChannelStreams();
  void CloseExchange(bool Forget);
  void FinishStopQuietly();
  // Both buffer switches: one exchange under the exchange lock; without
  // Params the time record is read from the driver's sample position.
  void Exchange(TASIOTime* Params, int32_t Index, TASIOBool DirectProcess);
  void SyncBufferSwitchTimeInfo(TASIOTime* Params, int32_t Index, TASIOBool DirectProcess);
  void ProcessInputs();

  TSRASIODevice FDevice;
  TSRASIOSampleRate FSampleRate;
  TSRASIOClockSource FClockSource;
  TSRASIOBufferSize FBufferSize;
  TSRASIOInputChannelItems FInputChannels;
  TSRASIOOutputChannelItems FOutputChannels;
  TSRASIOAvailableChannels FAvailableInputs;
  TSRASIOAvailableChannels FAvailableOutputs;
  std::atomic<bool> FMasterPumping{false};
  std::atomic<bool> FProcessOnDriverThread{false};
  void* FWindow = nullptr;

  // Read on open.
  std::string FDriverName;
  int32_t FDriverVersion = 0;
  int32_t FInputLatency = 0, FOutputLatency = 0;
  double FRunningRate = 0.0;
  std::atomic<int32_t> FIntRate{0};
  int32_t FDriverInputs = 0, FDriverOutputs = 0;
  std::vector<TASIOChannelInfo> FChannelInfos;
  std::atomic<bool> FUsesPostOutput{false};

  TRunState FRun;
  TExchange FExchange;

  // The processing thread and the input items it serves (FProcessLock).
  std::mutex FProcessLock;
  std::vector<TSRASIOInputChannelItem*> FProcessInputs;
  std::unique_ptr<Threading::TProcessingThread> FThread;

  TSRASIOStreamCounters FCounters;
};

// The unit's registration entry: hands TSRASIOAudioDevice to the component catalogue.
namespace Srasioaudiodevice {
void RegisterPkg();
void UnregisterPkg();
}  // namespace Srasioaudiodevice

}  // namespace Quorvel
