#include "dshow/Dscom.h"

#include <cstring>

namespace Quorvel::Dshow {

void FreeMediaType(AM_MEDIA_TYPE& Type) noexcept {
  if (Type.pbFormat) CoTaskMemFree(Type.pbFormat);
  if (Type.pUnk) Type.pUnk->Release();
  Type = AM_MEDIA_TYPE{};
}

bool CopyMediaType(AM_MEDIA_TYPE& Dest, const AM_MEDIA_TYPE& Source) noexcept {
  Dest = Source;
  Dest.pbFormat = nullptr;
  Dest.cbFormat = 0;
  if (Source.cbFormat && Source.pbFormat) {
    Dest.pbFormat = static_cast<BYTE*>(CoTaskMemAlloc(Source.cbFormat));
    if (!Dest.pbFormat) {
      Dest = AM_MEDIA_TYPE{};
      return false;
    }
    std::memcpy(Dest.pbFormat, Source.pbFormat, Source.cbFormat);
    Dest.cbFormat = Source.cbFormat;
  }
  if (Dest.pUnk) Dest.pUnk->AddRef();
  return true;
}

AM_MEDIA_TYPE* CreateMediaType(const AM_MEDIA_TYPE& Source) noexcept {
  auto* T = static_cast<AM_MEDIA_TYPE*>(CoTaskMemAlloc(sizeof(AM_MEDIA_TYPE)));
  if (!T) return nullptr;
  if (!CopyMediaType(*T, Source)) {
    CoTaskMemFree(T);
    return nullptr;
  }
  return T;
}

void DeleteMediaType(AM_MEDIA_TYPE* Type) noexcept {
  if (!Type) return;
  FreeMediaType(*Type);
  CoTaskMemFree(Type);
}

bool MakeAudioMediaType(const WAVEFORMATEX& Format, TMediaType& Out) noexcept {
  FreeMediaType(Out.Type);
  const bool Extensible = Format.wFormatTag == WAVE_FORMAT_EXTENSIBLE && Format.cbSize >= 22;
  const ULONG Size = Extensible ? sizeof(WAVEFORMATEXTENSIBLE) : sizeof(WAVEFORMATEX);
  auto* Block = static_cast<BYTE*>(CoTaskMemAlloc(Size));
  if (!Block) return false;
  std::memcpy(Block, &Format, Size);
  if (!Extensible) reinterpret_cast<WAVEFORMATEX*>(Block)->cbSize = 0;
  AM_MEDIA_TYPE& T = Out.Type;
  T.majortype = MEDIATYPE_Audio;
  if (Extensible) {
    T.subtype = reinterpret_cast<const WAVEFORMATEXTENSIBLE&>(Format).SubFormat;
  } else {
    // The audio subtypes are the wave format tag in the first field of the base GUID.
    T.subtype = MEDIASUBTYPE_PCM;
    T.subtype.Data1 = Format.wFormatTag;
  }
  T.bFixedSizeSamples = TRUE;
  T.bTemporalCompression = FALSE;
  T.lSampleSize = Format.nBlockAlign;
  T.formattype = FORMAT_WaveFormatEx;
  T.cbFormat = Size;
  T.pbFormat = Block;
  return true;
}

bool MakePreferredAudioMediaType(const WAVEFORMATEXTENSIBLE& Format, TMediaType& Out) noexcept {
  WAVEFORMATEXTENSIBLE W = Format;
  const bool Extensible = W.Format.wFormatTag == WAVE_FORMAT_EXTENSIBLE && W.Format.cbSize >= 22;
  const bool Pcm = Extensible ? W.SubFormat == MEDIASUBTYPE_PCM : W.Format.wFormatTag == WAVE_FORMAT_PCM;
  if (Pcm && W.Format.nChannels <= 2 && W.Format.wBitsPerSample <= 16) {
    W.Format.wFormatTag = WAVE_FORMAT_PCM;
    W.Format.cbSize = 0;
  }
  return MakeAudioMediaType(W.Format, Out);
}

const WAVEFORMATEX* WaveFormatOf(const AM_MEDIA_TYPE& Type) noexcept {
  if (Type.formattype != FORMAT_WaveFormatEx || !Type.pbFormat || Type.cbFormat < sizeof(WAVEFORMATEX) - 2)
    return nullptr;
  return reinterpret_cast<const WAVEFORMATEX*>(Type.pbFormat);
}

std::string Narrow(const wchar_t* Text) {
  if (!Text) return std::string();
  const int N = WideCharToMultiByte(CP_UTF8, 0, Text, -1, nullptr, 0, nullptr, nullptr);
  if (N <= 1) return std::string();
  std::string S(size_t(N), '\0');
  WideCharToMultiByte(CP_UTF8, 0, Text, -1, S.data(), N, nullptr, nullptr);
  S.resize(size_t(N - 1));
  return S;
}

std::wstring Widen(const std::string& Text) {
  if (Text.empty()) return std::wstring();
  const int N = MultiByteToWideChar(CP_UTF8, 0, Text.data(), int(Text.size()), nullptr, 0);
  std::wstring W(size_t(N > 0 ? N : 0), L'\0');
  if (N > 0) MultiByteToWideChar(CP_UTF8, 0, Text.data(), int(Text.size()), W.data(), N);
  return W;
}

}  // namespace Quorvel::Dshow
