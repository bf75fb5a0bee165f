// An in-process IASIO double for unit tests: answers fixed values, records
// the arguments it was given and the reference count seen inside each call.
#pragma once

#include <atomic>
#include <cstring>
#include <string>

#include "asio/Asiointerface.h"

namespace Quorvel::Testing {

class TFakeAsioDriver final : public IASIO {
 public:
  static constexpr int32_t E_NOINTERFACE_ = static_cast<int32_t>(0x80004002u);

  // Starts with one reference, which the creator owns.
  TFakeAsioDriver(const TGUID& Clsid, std::string DriverName) : Name(std::move(DriverName)), FClsid(Clsid) { ++Live; }

  // A catalogue factory: a new driver of class Clsid for the interface Clsid.
  static void* Create(const TGUID& Clsid, const std::string& Name, const TGUID& Iid) {
    auto* Driver = new TFakeAsioDriver(Clsid, Name);
    void* Out = nullptr;
    Driver->QueryInterface(Iid, &Out);
    Driver->Release();
    return Out;
  }

  int32_t QueryInterface(const TGUID& Iid, void** Obj) override {
    static const TGUID Unknown{0, 0, 0, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}};
    if (Iid == FClsid || Iid == Unknown) {
      AddRef();
      *Obj = this;
      return 0;
    }
    *Obj = nullptr;
    return E_NOINTERFACE_;
  }
  uint32_t AddRef() override { return ++FRefs; }
  uint32_t Release() override {
    const uint32_t Left = --FRefs;
    if (Left == 0) delete this;
    return Left;
  }
  uint32_t RefCount() const { return FRefs; }

  TASIOBool init(void* SysHandle) override { return Seen(ASIOTrue, "init", SysHandle); }
  void getDriverName(char* Text) override {
    Seen(0, "getDriverName");
    std::memcpy(Text, NameBytes ? NameBytes : Name.c_str(), NameBytes ? NameLength : Name.size() + 1);
  }
  int32_t getDriverVersion() override { return Seen(Version, "getDriverVersion"); }
  void getErrorMessage(char* Text) override {
    Seen(0, "getErrorMessage");
    std::strcpy(Text, ErrorText.c_str());
  }
  TASIOError start() override { return Seen(Result, "start"); }
  TASIOError stop() override { return Seen(Result, "stop"); }
  TASIOError getChannels(int32_t* In, int32_t* Out) override {
    *In = 2;
    *Out = 6;
    return Seen(Result, "getChannels");
  }
  TASIOError getLatencies(int32_t* In, int32_t* Out) override {
    *In = 128;
    *Out = 256;
    return Seen(Result, "getLatencies");
  }
  TASIOError getBufferSize(int32_t* Min, int32_t* Max, int32_t* Preferred, int32_t* Granularity) override {
    *Min = 64;
    *Max = 2048;
    *Preferred = 512;
    *Granularity = -1;
    return Seen(Result, "getBufferSize");
  }
  TASIOError canSampleRate(TASIOSampleRate Rate) override { return Seen(Result, "canSampleRate", nullptr, Rate); }
  TASIOError getSampleRate(TASIOSampleRate* Rate) override {
    *Rate = 48000;
    return Seen(Result, "getSampleRate");
  }
  TASIOError setSampleRate(TASIOSampleRate Rate) override { return Seen(Result, "setSampleRate", nullptr, Rate); }
  TASIOError getClockSources(TASIOClockSource* Clocks, int32_t* Count) override {
    LastInt = *Count;
    Clocks[0].index = 0;
    std::strcpy(Clocks[0].name, "Internal");
    *Count = 1;
    return Seen(Result, "getClockSources", Clocks);
  }
  TASIOError setClockSource(int32_t Index) override {
    LastInt = Index;
    return Seen(Result, "setClockSource");
  }
  TASIOError getSamplePosition(TASIOSamples* Position, TASIOTimeStamp* Stamp) override {
    *Position = ASIOSamplesFrom(0x100000002ull);
    *Stamp = ASIOTimeStampFrom(0x300000004ull);
    return Seen(Result, "getSamplePosition");
  }
  TASIOError getChannelInfo(TASIOChannelInfo* Info) override {
    Info->type = ASIOSTInt24LSB;
    Info->isActive = Info->isInput;
    return Seen(Result, "getChannelInfo", Info);
  }
  TASIOError createBuffers(TASIOBufferInfo* Infos, int32_t Count, int32_t Size, TASIOCallbacks* Callbacks) override {
    LastInt = Count * 100000 + Size;
    LastCallbacks = Callbacks;
    return Seen(Result, "createBuffers", Infos);
  }
  TASIOError disposeBuffers() override { return Seen(Result, "disposeBuffers"); }
  TASIOError controlPanel() override { return Seen(Result, "controlPanel"); }
  TASIOError future(int32_t Selector, void* Opt) override {
    LastInt = Selector;
    return Seen(Result, "future", Opt);
  }
  TASIOError outputReady() override { return Seen(Result, "outputReady"); }

  static inline std::atomic<int> Live{0};

  const std::string Name;
  const char* NameBytes = nullptr;  // when set, getDriverName copies NameLength raw bytes
  size_t NameLength = 0;
  std::string ErrorText = "all is well";
  int32_t Version = 7;
  TASIOError Result = ASE_OK;  // answer of every method with an error code

  std::string LastMethod;
  uint32_t RefsInCall = 0;
  void* LastPointer = nullptr;
  double LastDouble = 0;
  int32_t LastInt = 0;
  TASIOCallbacks* LastCallbacks = nullptr;

 private:
  ~TFakeAsioDriver() { --Live; }
  template <typename T>
  T Seen(T Answer, const char* Method, void* Pointer = nullptr, double Double = 0) {
    LastMethod = Method;
    RefsInCall = FRefs;
    LastPointer = Pointer;
    LastDouble = Double;
    return Answer;
  }
  TGUID FClsid;
  std::atomic<uint32_t> FRefs{1};
};

}  // namespace Quorvel::Testing
