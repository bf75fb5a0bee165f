// COM helpers of the DirectShow units (Windows only): a counted interface
// reference, media type ownership and the audio media type of a wave format.
#pragma once

// clang-format off
#include <windows.h>
#include <mmreg.h>
#include <strmif.h>
#include <uuids.h>
#include <control.h>
#include <vfwmsgs.h>
#include <evcode.h>
// clang-format on

#include <atomic>
#include <cstdint>
#include <string>
#include <utility>

namespace Quorvel::Dshow {

// An object that offers one COM interface, I (identifier InterfaceID), with
// its own reference count; the last Release deletes it.
template <typename I, const IID& InterfaceID>
class TComObject : public I {
 public:
  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID Iid, void** Out) noexcept override {
    if (!Out) return E_POINTER;
    if (Iid != IID_IUnknown && Iid != InterfaceID) {
      *Out = nullptr;
      return E_NOINTERFACE;
    }
    *Out = static_cast<I*>(this);
    AddRef();
    return S_OK;
  }
  ULONG STDMETHODCALLTYPE AddRef() noexcept override { return ++FRefs; }
  ULONG STDMETHODCALLTYPE Release() noexcept override {
    const ULONG R = --FRefs;
    if (R == 0) delete this;
    return R;
  }

 protected:
  virtual ~TComObject() = default;

 private:
  std::atomic<ULONG> FRefs{1};
};

// A counted reference to a COM interface: Release when let go.
template <typename T>
class TComPtr {
 public:
  TComPtr() noexcept = default;
  TComPtr(std::nullptr_t) noexcept {}
  explicit TComPtr(T* P) noexcept : FPtr(P) { if (FPtr) FPtr->AddRef(); }
  TComPtr(const TComPtr& O) noexcept : FPtr(O.FPtr) { if (FPtr) FPtr->AddRef(); }
  TComPtr(TComPtr&& O) noexcept : FPtr(std::exchange(O.FPtr, nullptr)) {}
  ~TComPtr() { Reset(); }
  TComPtr& operator=(TComPtr O) noexcept {
    std::swap(FPtr, O.FPtr);
    return *this;
  }
  T* Get() const noexcept { return FPtr; }
  T* operator->() const noexcept { return FPtr; }
  explicit operator bool() const noexcept { return FPtr != nullptr; }
  // The slot for a call that hands out a new reference.
  T** Put() noexcept {
    Reset();
    return &FPtr;
  }
  void** PutVoid() noexcept { return reinterpret_cast<void**>(Put()); }
  void Reset() noexcept {
    if (T* P = std::exchange(FPtr, nullptr)) P->Release();
  }
  T* Detach() noexcept { return std::exchange(FPtr, nullptr); }
  template <typename U>
  HRESULT As(TComPtr<U>& Out) const noexcept {
    if (!FPtr) return E_POINTER;
    return FPtr->QueryInterface(__uuidof(U), Out.PutVoid());
  }

 private:
  T* FPtr = nullptr;
};

// Frees what a media type owns (its format block and format object) and clears it.
void FreeMediaType(AM_MEDIA_TYPE& Type) noexcept;
// Deep copy; false (Dest cleared) when the format block cannot be allocated.
bool CopyMediaType(AM_MEDIA_TYPE& Dest, const AM_MEDIA_TYPE& Source) noexcept;
// A task-memory copy of Source, for callers that free with DeleteMediaType's rules.
AM_MEDIA_TYPE* CreateMediaType(const AM_MEDIA_TYPE& Source) noexcept;
void DeleteMediaType(AM_MEDIA_TYPE* Type) noexcept;

// An owned media type.
struct TMediaType {
  AM_MEDIA_TYPE Type{};
  TMediaType() = default;
  TMediaType(const TMediaType& O) { CopyMediaType(Type, O.Type); }
  TMediaType& operator=(const TMediaType& O) {
    if (this != &O) {
      FreeMediaType(Type);
      CopyMediaType(Type, O.Type);
    }
    return *this;
  }
  ~TMediaType() { FreeMediaType(Type); }
};

// The audio media type of a wave format record (WAVEFORMATEX or the
// extensible form, by its tag and cbSize); false when memory runs out.
bool MakeAudioMediaType(const WAVEFORMATEX& Format, TMediaType& Out) noexcept;
// The audio media type of an extensible record, as a plain header where
// that says everything (integer PCM, at most two channels and 16 bits),
// since many filters know only that form.
bool MakePreferredAudioMediaType(const WAVEFORMATEXTENSIBLE& Format, TMediaType& Out) noexcept;
// The wave format a media type carries, or nullptr.
const WAVEFORMATEX* WaveFormatOf(const AM_MEDIA_TYPE& Type) noexcept;

// UTF-16 <-> UTF-8 for names.
std::string Narrow(const wchar_t* Text);
std::wstring Widen(const std::string& Text);

}  // namespace Quorvel::Dshow
