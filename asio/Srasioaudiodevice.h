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

// A FIFO of mono audio buffers with the samples it holds and the read offset
// into the head buffer. Push and Pop may run on two threads at once (one
// producer, one consumer); each holds an internal lock for a few pointer
// moves and, in Pop, one copy of at most the target's size. Storage grows
// only when more buffers are held than ever before.
class TSRASIOAudioQueue {
 public:
  TSRASIOAudioQueue() = default;
  TSRASIOAudioQueue(const TSRASIOAudioQueue&) = delete;
  TSRASIOAudioQueue& operator=(const TSRASIOAudioQueue&) = delete;

  // [main thread] Makes room for Buffers buffers.
  void Reserve(size_t Buffers);
  // [producer] Appends Buffer (the queue keeps a reference) and adds its samples to the total.
  void Push(const ISRAudioBufferRef& Buffer);
  // [consumer] Fills Target exactly: false, taking nothing, when fewer
  // samples are held than Target has. Samples are converted to Target's width.
  bool Pop(ISRAudioBuffer& Target);
  // [consumer] Takes the head buffer whole (from the read offset on); null when empty.
  ISRAudioBufferRef PopBuffer();
  // [any thread] Empties the queue and resets both counters.
  void Clear();
  size_t GetTotal() const;       // [any thread] samples held
  size_t GetReadOffset() const;  // [any thread]
  size_t GetCount() const;       // [any thread] buffers held

 private:
  ISRAudioBufferRef& At(size_t I) { return FRing[(FHead + I) % FRing.size()]; }
  mutable std::mutex FMutex;
  std::vector<ISRAudioBufferRef> FRing;
  size_t FHead = 0;
  size_t FCount = 0;
  size_t FTotal = 0;
  size_t FOffset = 0;
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
  bool Assign(const TWBPersistent& Source) override;

 private:
  friend class TSRASIOAudioDevice;
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
  bool Assign(const TWBPersistent& Source) override;

 private:
  friend class TSRASIOAudioDevice;
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
  friend class TSRASIOAudioDevice;
  virtual bool IsInput() const = 0;
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

 protected:
  bool IsInput() const override { return true; }

 private:
  friend class TSRASIOAudioDevice;
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

 protected:
  bool IsInput() const override { return false; }

 private:
  friend class TSRASIOAudioDevice;
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

 private:
  friend class TSRASIOAudioDevice;
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
};

class TSRASIOAudioDevice : public TWBComponent {
 public:
  explicit TSRASIOAudioDevice(TWBComponent* Owner = nullptr);
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
  // The window handle the driver is given at init (default none).
  void* GetApplicationWindow() const { return FWindow; }
  void SetApplicationWindow(void* Value) { FWindow = Value; }

  // ---- life ----
  bool Open();                 // [main thread] true when a driver is held
  void Close();                // [main thread]
  bool Start();                // [main thread] answers whether the device is open
  void Stop();                 // [main thread]
  bool GetOpened() const;      // [any thread]
  void SetOpened(bool Value);  // [main thread]
  bool GetRunning() const { return FRunning.load(); }  // [any thread]
  // Hides the base's: the device is enabled while it runs. Setting starts or stops it.
  bool GetEnabled() const { return FDeviceEnabled.load(); }
  void SetEnabled(bool Value);

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
  // The callback entry of the latest start (0 before any).
  int32_t GetCallbackIndex() const { return FCallbackIndex; }
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
  template <typename>
  friend class TSRASIOChannelItems;
  friend class TSRASIOInputChannelItem;
  friend class TSRASIOOutputChannelItem;
  struct TRunChannel {
    TSRASIOChannelItem* Item = nullptr;
    TASIOSampleType Type = 0;
    unsigned Bits = 0;        // audio buffer bits; 0: the channel is not converted
    void* Halves[2] = {nullptr, nullptr};
    ISRAudioBufferRef Scratch;  // outputs: the buffer each exchange pops into
    TSRASIOBufferRing Ring;     // inputs: the buffers each exchange fills
  };
  bool IntOpen();
  void DropDriver();
  bool ReadChannelInfos(bool Warn);
  void AnnounceInputs();
  void UnannounceInputs();
  void StartFailed(bool BuffersCreated);
  // Both buffer switches: one exchange under the exchange lock; without
  // Params the time record is read from the driver's sample position.
  void Exchange(TASIOTime* Params, int32_t Index, TASIOBool DirectProcess);
  void SyncBufferSwitchTimeInfo(TASIOTime* Params, int32_t Index, TASIOBool DirectProcess);
  void ProcessInputs();
  void ChannelsChanging();

  TSRASIODevice FDevice;
  TSRASIOSampleRate FSampleRate;
  TSRASIOClockSource FClockSource;
  TSRASIOBufferSize FBufferSize;
  TSRASIOInputChannelItems FInputChannels;
  TSRASIOOutputChannelItems FOutputChannels;
  TSRASIOAvailableChannels FAvailableInputs;
  TSRASIOAvailableChannels FAvailableOutputs;
  std::atomic<bool> FMasterPumping{false};
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

  // Run time.
  IASIORef FDriver;
  std::atomic<bool> FOpened{false};
  int32_t FCallbackIndex = 0;
  std::vector<TASIOBufferInfo> FBufferInfos;
  int32_t FEnabledInputs = 0, FEnabledOutputs = 0;
  std::atomic<bool> FRunning{false};
  std::atomic<bool> FDeviceEnabled{false};
  bool FStarting = false;
  bool FStopping = false;
  bool FBuffersCreated = false;

  // The exchange: what the driver thread works on, guarded by FExchangeLock.
  std::mutex FExchangeLock;
  bool FExchangeActive = false;
  IASIO* FExchangeDriver = nullptr;
  int32_t FExchangeSize = 0;
  double FExchangeRate = 0.0;
  std::vector<TRunChannel> FRunInputs;
  std::vector<TRunChannel> FRunOutputs;

  // The processing thread and the input items it serves (FProcessLock).
  std::mutex FProcessLock;
  std::vector<TSRASIOInputChannelItem*> FProcessInputs;
  std::unique_ptr<Threading::TProcessingThread> FThread;

  struct TCounters {
    std::atomic<uint64_t> Switches{0}, Skipped{0}, Inputs{0}, Submitted{0}, Outputs{0}, Lost{0};
  };
  TCounters FCounters;
};

}  // namespace Quorvel
