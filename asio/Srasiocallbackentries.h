// The process-wide table that routes the context-free ASIO driver callbacks
// to objects. Each of the 101 entries owns a fixed TASIOCallbacks record of
// four functions dedicated to that entry; they forward to whatever methods
// are bound in the entry. A component acquires an entry before creating the
// driver's buffers, hands the entry's record to the driver, and releases the
// entry after the buffers are disposed (with the driver stopped, so that no
// callback can reach a cleared or reused entry).
#pragma once

#include <cstdint>

#include "asio/Asiointerface.h"

namespace Quorvel {

constexpr int32_t ASIOCallbackEntryCount = 101;

// A bound method: an object and a plain function that takes the object
// first. Empty when Code is null. Bind<&TClass::Method>(Object) makes one
// from a member function.
struct TASIOBufferSwitchMethod {
  using TCode = void (*)(void* Object, int32_t DoubleBufferIndex, TASIOBool DirectProcess);
  void* Object = nullptr;
  TCode Code = nullptr;
  template <auto Method, typename TClass>
  static TASIOBufferSwitchMethod Bind(TClass* Object) {
    return {Object, [](void* O, int32_t Index, TASIOBool Direct) { (static_cast<TClass*>(O)->*Method)(Index, Direct); }};
  }
};

struct TASIOSampleRateDidChangeMethod {
  using TCode = void (*)(void* Object, TASIOSampleRate Rate);
  void* Object = nullptr;
  TCode Code = nullptr;
  template <auto Method, typename TClass>
  static TASIOSampleRateDidChangeMethod Bind(TClass* Object) {
    return {Object, [](void* O, TASIOSampleRate Rate) { (static_cast<TClass*>(O)->*Method)(Rate); }};
  }
};

struct TASIOAsioMessageMethod {
  using TCode = int32_t (*)(void* Object, int32_t Selector, int32_t Value, void* Message, double* Opt);
  void* Object = nullptr;
  TCode Code = nullptr;
  template <auto Method, typename TClass>
  static TASIOAsioMessageMethod Bind(TClass* Object) {
    return {Object, [](void* O, int32_t Selector, int32_t Value, void* Message, double* Opt) -> int32_t {
              return (static_cast<TClass*>(O)->*Method)(Selector, Value, Message, Opt);
            }};
  }
};

struct TASIOBufferSwitchTimeInfoMethod {
  using TCode = TASIOTime* (*)(void* Object, TASIOTime* Params, int32_t DoubleBufferIndex, TASIOBool DirectProcess);
  void* Object = nullptr;
  TCode Code = nullptr;
  template <auto Method, typename TClass>
  static TASIOBufferSwitchTimeInfoMethod Bind(TClass* Object) {
    return {Object, [](void* O, TASIOTime* Params, int32_t Index, TASIOBool Direct) -> TASIOTime* {
              return (static_cast<TClass*>(O)->*Method)(Params, Index, Direct);
            }};
  }
};

// [main thread] Takes the lowest free entry (one whose four methods are all
// empty), binds the four methods to it and points Callbacks at its record;
// answers the entry's index. With all entries busy answers -1 and sets
// Callbacks to null. An entry bound with only some methods is busy as well.
int32_t ASIOGetCallback(PASIOCallbacks& Callbacks, const TASIOBufferSwitchMethod& BufferSwitch,
                        const TASIOSampleRateDidChangeMethod& SampleRateDidChange,
                        const TASIOAsioMessageMethod& AsioMessage,
                        const TASIOBufferSwitchTimeInfoMethod& BufferSwitchTimeInfo);
// [main thread] Clears the four methods of entry Index, making it free. Pass
// only an index ASIOGetCallback answered; others are ignored.
void ASIOReleaseCallback(int32_t Index);

// [main thread] Releases every entry with a method bound to Object; answers
// how many. An object that goes away calls it, so that no entry it left
// bound can reach it afterwards.
int32_t ASIOReleaseCallbacksOf(const void* Object);

// The record of entry Index (fixed for the life of the process), or null
// outside 0..100. Its functions, called by a driver on any thread, forward to
// the bound methods; unbound, bufferSwitch and sampleRateDidChange do
// nothing, asioMessage answers 0 (selector not supported) and
// bufferSwitchTimeInfo answers null. They never let an exception out.
PASIOCallbacks ASIOCallbackRecord(int32_t Index);

}  // namespace Quorvel
