// A DirectShow filter with one output pin that pushes samples (Windows only):
// IBaseFilter, the output IPin, pin and media type enumerators, allocator
// negotiation with the downstream input pin, timed samples and end of stream.
// The audio push source of the sink component and the test capture filter
// both derive from it and only say which media types they offer, how large
// the buffers are and which extra interfaces their pin has.
//
// Threads: the graph calls the filter and pin methods on its own threads;
// Deliver and DeliverEndOfStream run on the caller's streaming thread. Stop
// decommits the allocator first, so a Deliver blocked in GetBuffer returns.
#pragma once

#include <atomic>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <thread>
#include <string>

#include "dshow/Dscom.h"

namespace Quorvel::Dshow {

class TDSPushFilter;

class TDSPushPin final : public IPin {
 public:
  TDSPushPin(TDSPushFilter& Filter, std::wstring Name);
  ~TDSPushPin();

  // IUnknown: the pin lives as long as its filter and counts on it.
  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID Iid, void** Out) noexcept override;
  ULONG STDMETHODCALLTYPE AddRef() noexcept override;
  ULONG STDMETHODCALLTYPE Release() noexcept override;
  // IPin
  HRESULT STDMETHODCALLTYPE Connect(IPin* ReceivePin, const AM_MEDIA_TYPE* Type) noexcept override;
  HRESULT STDMETHODCALLTYPE ReceiveConnection(IPin* Connector, const AM_MEDIA_TYPE* Type) noexcept override;
  HRESULT STDMETHODCALLTYPE Disconnect() noexcept override;
  HRESULT STDMETHODCALLTYPE ConnectedTo(IPin** Pin) noexcept override;
  HRESULT STDMETHODCALLTYPE ConnectionMediaType(AM_MEDIA_TYPE* Type) noexcept override;
  HRESULT STDMETHODCALLTYPE QueryPinInfo(PIN_INFO* Info) noexcept override;
  HRESULT STDMETHODCALLTYPE QueryDirection(PIN_DIRECTION* Direction) noexcept override;
  HRESULT STDMETHODCALLTYPE QueryId(LPWSTR* Id) noexcept override;
  HRESULT STDMETHODCALLTYPE QueryAccept(const AM_MEDIA_TYPE* Type) noexcept override;
  HRESULT STDMETHODCALLTYPE EnumMediaTypes(IEnumMediaTypes** Enum) noexcept override;
  HRESULT STDMETHODCALLTYPE QueryInternalConnections(IPin** Pins, ULONG* Count) noexcept override;
  HRESULT STDMETHODCALLTYPE EndOfStream() noexcept override;
  HRESULT STDMETHODCALLTYPE BeginFlush() noexcept override;
  HRESULT STDMETHODCALLTYPE EndFlush() noexcept override;
  HRESULT STDMETHODCALLTYPE NewSegment(REFERENCE_TIME Start, REFERENCE_TIME Stop, double Rate) noexcept override;

  const std::wstring& GetName() const { return FName; }
  bool IsConnected() const;
  // The connection's media type; false when not connected.
  bool GetConnectionType(TMediaType& Type) const;
  // The properties the allocator agreed to; zero when not connected.
  ALLOCATOR_PROPERTIES GetAllocatorProperties() const;

  // [streaming thread, graph running or paused] Copies Size bytes into as
  // many samples as needed (times split in proportion) and hands them to the
  // connected pin. S_OK, or the first failure (VFW_E_NOT_CONNECTED,
  // VFW_E_NOT_COMMITTED when stopped, the downstream pin's refusal).
  HRESULT Deliver(const BYTE* Data, size_t Size, REFERENCE_TIME Start, REFERENCE_TIME End) noexcept;
  // The end of stream is sent on a thread of its own and waited for at most
  // TimeoutMs: a renderer answers once what it holds has played, and one that
  // never does (Wine's DirectSound renderer on a device whose play position
  // stops) must not hold the caller. VFW_E_TIMEOUT then; stopping the graph
  // ends the renderer's wait, and the filter's Stop collects the thread.
  static constexpr uint32_t kEndOfStreamWaitMs = 10000;
  HRESULT DeliverEndOfStream(uint32_t TimeoutMs = kEndOfStreamWaitMs) noexcept;

 private:
  friend class TDSPushFilter;
  HRESULT TryConnect(IPin* ReceivePin, const AM_MEDIA_TYPE& Type);
  HRESULT DecideAllocator();
  void ReleaseConnection();
  HRESULT Active();    // stopped -> paused: commit the allocator
  void Inactive();     // -> stopped: decommit it
  void JoinEndOfStream() noexcept;
  TDSPushFilter& FFilter;
  std::wstring FName;
  mutable std::recursive_mutex FLock;  // connection state
  std::mutex FStreamLock;              // one delivery at a time; connection changes wait for it
  TComPtr<IPin> FConnected;
  TComPtr<IMemInputPin> FInput;
  TComPtr<IMemAllocator> FAllocator;
  ALLOCATOR_PROPERTIES FProps{};
  TMediaType FType;
  bool FDiscontinuity = true;
  std::thread FEndThread;               // the last end of stream's sender
};

class TDSPushFilter : public IBaseFilter {
 public:
  TDSPushFilter(const CLSID& Class, std::wstring PinName);
  virtual ~TDSPushFilter();
  TDSPushFilter(const TDSPushFilter&) = delete;
  TDSPushFilter& operator=(const TDSPushFilter&) = delete;

  // IUnknown
  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID Iid, void** Out) noexcept override;
  ULONG STDMETHODCALLTYPE AddRef() noexcept override;
  ULONG STDMETHODCALLTYPE Release() noexcept override;
  // IPersist
  HRESULT STDMETHODCALLTYPE GetClassID(CLSID* Class) noexcept override;
  // IMediaFilter
  HRESULT STDMETHODCALLTYPE Stop() noexcept override;
  HRESULT STDMETHODCALLTYPE Pause() noexcept override;
  HRESULT STDMETHODCALLTYPE Run(REFERENCE_TIME Start) noexcept override;
  HRESULT STDMETHODCALLTYPE GetState(DWORD Timeout, FILTER_STATE* State) noexcept override;
  HRESULT STDMETHODCALLTYPE SetSyncSource(IReferenceClock* Clock) noexcept override;
  HRESULT STDMETHODCALLTYPE GetSyncSource(IReferenceClock** Clock) noexcept override;
  // IBaseFilter
  HRESULT STDMETHODCALLTYPE EnumPins(IEnumPins** Enum) noexcept override;
  HRESULT STDMETHODCALLTYPE FindPin(LPCWSTR Id, IPin** Pin) noexcept override;
  HRESULT STDMETHODCALLTYPE QueryFilterInfo(FILTER_INFO* Info) noexcept override;
  HRESULT STDMETHODCALLTYPE JoinFilterGraph(IFilterGraph* Graph, LPCWSTR Name) noexcept override;
  HRESULT STDMETHODCALLTYPE QueryVendorInfo(LPWSTR* Info) noexcept override;

  TDSPushPin& GetPin() { return FPin; }
  FILTER_STATE GetFilterState() const;
  // The graph the filter is in (not counted: the graph holds the filter).
  IFilterGraph* GetGraph() const;
  // The stream time of the running graph's clock, when there is one.
  bool GetStreamTime(REFERENCE_TIME& Time) const;

  // What the pin offers, in order of preference; false past the end.
  virtual bool GetMediaType(int Index, TMediaType& Type) = 0;
  // Whether the pin can produce Type.
  virtual bool CheckMediaType(const AM_MEDIA_TYPE& Type) = 0;
  // Fills Props for the connection's Type; Request holds the downstream
  // pin's wishes (zero where it has none).
  virtual void DecideBufferSize(const AM_MEDIA_TYPE& Type, const ALLOCATOR_PROPERTIES& Request,
                                ALLOCATOR_PROPERTIES& Props) = 0;
  // Extra interfaces of the pin (the base has none).
  virtual HRESULT QueryPinInterface(REFIID Iid, void** Out) { return E_NOINTERFACE; }
  // The filter's state changed (called holding the filter's lock).
  virtual void StateChanged(FILTER_STATE Old, FILTER_STATE New) {}

 protected:
  mutable std::recursive_mutex FLock;  // the filter's state

 private:
  std::atomic<ULONG> FRefs{1};
  CLSID FClass;
  TDSPushPin FPin;
  FILTER_STATE FState = State_Stopped;
  REFERENCE_TIME FStart = 0;
  TComPtr<IReferenceClock> FClock;
  IFilterGraph* FGraph = nullptr;
  std::wstring FName;
};

}  // namespace Quorvel::Dshow
