// The enumerator's creation, task memory and the text helpers of the
// endpoint interfaces.
#include "mastervolume/Mmdeviceapi.h"

#include <objbase.h>
#include <windows.h>

#include <cstring>
#include <mutex>

namespace Quorvel::Mmdeviceapi {
namespace {

std::mutex GFactoryLock;
TDeviceEnumeratorFactory GFactory;

const GUID& AsGuid(const TGUID& G) { return reinterpret_cast<const GUID&>(G); }

}  // namespace

THResult CreateDeviceEnumerator(IMMDeviceEnumerator** Enumerator) {
  if (!Enumerator) return HrPointer;
  *Enumerator = nullptr;
  TDeviceEnumeratorFactory Factory;
  {
    std::lock_guard<std::mutex> G(GFactoryLock);
    Factory = GFactory;
  }
  if (Factory) return Factory(Enumerator);
  // A thread that is no apartment yet becomes a single-threaded one (the
  // main thread of a windowed program), once; one that is already
  // multithreaded stays so, and the enumerator works in either. The
  // apartment lives as long as the thread.
  thread_local bool Initialized = false;
  if (!Initialized) {
    CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED);
    Initialized = true;
  }
  void* Object = nullptr;
  const HRESULT R = CoCreateInstance(AsGuid(CLSID_MMDeviceEnumerator), nullptr, CLSCTX_INPROC_SERVER,
                                     AsGuid(IID_IMMDeviceEnumerator), &Object);
  if (SUCCEEDED(R)) *Enumerator = static_cast<IMMDeviceEnumerator*>(Object);
  return static_cast<THResult>(R);
}

void SetDeviceEnumeratorFactory(TDeviceEnumeratorFactory Factory) {
  std::lock_guard<std::mutex> G(GFactoryLock);
  GFactory = std::move(Factory);
}

void* TaskMemAlloc(size_t Bytes) { return CoTaskMemAlloc(Bytes); }

void TaskMemFree(void* Memory) { CoTaskMemFree(Memory); }

void ClearPropVariant(TPropVariant& Value) {
  static_assert(sizeof(TPropVariant) == sizeof(PROPVARIANT), "PROPVARIANT layout");
  PropVariantClear(reinterpret_cast<PROPVARIANT*>(&Value));
}

std::string FromWide(const wchar_t* Text) {
  std::string Result;
  if (!Text) return Result;
  for (const wchar_t* P = Text; *P; ++P) {
    uint32_t C = static_cast<uint16_t>(*P);
    if (C >= 0xD800 && C <= 0xDBFF && P[1] >= 0xDC00 && P[1] <= 0xDFFF) {
      C = 0x10000 + ((C - 0xD800) << 10) + (static_cast<uint16_t>(*++P) - 0xDC00);
    } else if (C >= 0xD800 && C <= 0xDFFF) {
      C = 0xFFFD;
    }
    if (C < 0x80) {
      Result += static_cast<char>(C);
    } else if (C < 0x800) {
      Result += static_cast<char>(0xC0 | (C >> 6));
      Result += static_cast<char>(0x80 | (C & 0x3F));
    } else if (C < 0x10000) {
      Result += static_cast<char>(0xE0 | (C >> 12));
      Result += static_cast<char>(0x80 | ((C >> 6) & 0x3F));
      Result += static_cast<char>(0x80 | (C & 0x3F));
    } else {
      Result += static_cast<char>(0xF0 | (C >> 18));
      Result += static_cast<char>(0x80 | ((C >> 12) & 0x3F));
      Result += static_cast<char>(0x80 | ((C >> 6) & 0x3F));
      Result += static_cast<char>(0x80 | (C & 0x3F));
    }
  }
  return Result;
}

std::wstring ToWide(const std::string& Text) {
  std::wstring Result;
  if (Text.empty()) return Result;
  const int Length = MultiByteToWideChar(CP_UTF8, 0, Text.data(), static_cast<int>(Text.size()), nullptr, 0);
  if (Length <= 0) return Result;
  Result.resize(static_cast<size_t>(Length));
  MultiByteToWideChar(CP_UTF8, 0, Text.data(), static_cast<int>(Text.size()), Result.data(), Length);
  return Result;
}

wchar_t* TaskMemString(const std::string& Text) {
  const std::wstring Wide = ToWide(Text);
  auto* Copy = static_cast<wchar_t*>(TaskMemAlloc((Wide.size() + 1) * sizeof(wchar_t)));
  if (Copy) std::memcpy(Copy, Wide.c_str(), (Wide.size() + 1) * sizeof(wchar_t));
  return Copy;
}

bool ReadDeviceId(IMMDevice& Device, std::string& Id) {
  wchar_t* Text = nullptr;
  const THResult R = Device.GetId(&Text);
  if (Succeeded(R) && Text) Id = FromWide(Text);
  TaskMemFree(Text);
  return Succeeded(R) && Text;
}

bool ReadFriendlyName(IMMDevice& Device, std::string& Name) {
  TComPtr<IPropertyStore> Store;
  if (Failed(Device.OpenPropertyStore(StgmRead, Store.Put())) || !Store) return false;
  TPropVariant Value{};
  const bool Ok = Succeeded(Store->GetValue(PKEY_Device_FriendlyName, &Value)) && Value.vt == VtLpwstr;
  if (Ok) Name = FromWide(Value.pwszVal);
  ClearPropVariant(Value);
  return Ok;
}

}  // namespace Quorvel::Mmdeviceapi
