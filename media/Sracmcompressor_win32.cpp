// The ACM conversion from PCM to a compressed format, over acmStream calls.
#include "media/Sraudiocompression.h"
#include "platform/Win32text_win32.h"

// clang-format off
#include <windows.h>
#include <mmreg.h>
#include <msacm.h>
// clang-format on

#include <algorithm>
#include <cstring>

namespace Quorvel {

struct TSRAcmCompressor::TImpl {
  HACMSTREAM Stream = nullptr;
  bool First = true;
  DWORD DestBlockAlign = 0;
  uint8_t Silence = 0;           // a byte of source silence (0x80 for 8-bit PCM)
  std::vector<uint8_t> Pending;  // source bytes short of a whole codec block
  std::vector<uint8_t> Work;     // the codec's output, grown to the largest block seen
};

TSRAcmCompressor::TSRAcmCompressor() : FImpl(std::make_unique<TImpl>()) {}

TSRAcmCompressor::~TSRAcmCompressor() { CloseCompressor(); }

bool TSRAcmCompressor::OpenCompressor(const TWaveFormatEx& Source, const uint8_t* Dest, size_t DestSize) {
  CloseCompressor();
  if (!Dest || DestSize < sizeof(TWaveFormatEx)) {
    FLastResult = MMSYSERR_INVALPARAM;
    return false;
  }
  WAVEFORMATEX Src;
  static_assert(sizeof Src == sizeof Source, "WAVEFORMATEX is the 18-byte header");
  std::memcpy(&Src, &Source, sizeof Src);
  Src.cbSize = 0;
  // ACM may keep a pointer to the destination while the stream is open: give it a copy of our own.
  std::vector<uint8_t> DestCopy(Dest, Dest + DestSize);
  HACMSTREAM Stream = nullptr;
  FLastResult = acmStreamOpen(&Stream, nullptr, &Src, reinterpret_cast<WAVEFORMATEX*>(DestCopy.data()), nullptr, 0,
                              0, ACM_STREAMOPENF_NONREALTIME);
  if (FLastResult != MMSYSERR_NOERROR) return false;
  FImpl->Stream = Stream;
  FImpl->DestBlockAlign = reinterpret_cast<const WAVEFORMATEX*>(Dest)->nBlockAlign;
  FImpl->Silence = Src.wBitsPerSample == 8 ? 0x80 : 0;
  FImpl->First = true;
  FImpl->Pending.clear();
  FImpl->Pending.reserve(size_t(Src.nAvgBytesPerSec));  // a second of input before it grows
  return true;
}

bool TSRAcmCompressor::GetOpened() const { return FImpl->Stream != nullptr; }

void TSRAcmCompressor::CloseCompressor() {
  if (!FImpl->Stream) return;
  acmStreamClose(FImpl->Stream, 0);
  FImpl->Stream = nullptr;
  FImpl->Pending.clear();
}

IWBDataBufferRef TSRAcmCompressor::CompressBuffer(const void* Data, size_t Size, bool Last) {
  TImpl& I = *FImpl;
  if (!I.Stream || (!Data && Size)) return nullptr;
  if (Size) I.Pending.insert(I.Pending.end(), static_cast<const uint8_t*>(Data), static_cast<const uint8_t*>(Data) + Size);
  // The last call fills the codec's final block with silence, so that no
  // sample is lost to a codec that converts whole blocks only.
  DWORD SourceBlock = 0;
  if (Last && !I.Pending.empty() && I.DestBlockAlign &&
      acmStreamSize(I.Stream, I.DestBlockAlign, &SourceBlock, ACM_STREAMSIZEF_DESTINATION) == MMSYSERR_NOERROR &&
      SourceBlock && I.Pending.size() % SourceBlock)
    I.Pending.resize((I.Pending.size() / SourceBlock + 1) * SourceBlock, I.Silence);
  if (I.Pending.empty() || I.Pending.size() > 0xFFFFFFFFu) return TWBBlockBuffer::Create(0);
  DWORD OutSize = 0;
  FLastResult = acmStreamSize(I.Stream, DWORD(I.Pending.size()), &OutSize, ACM_STREAMSIZEF_SOURCE);
  // Less than one block of the codec has no output size yet: wait for more.
  if (FLastResult != MMSYSERR_NOERROR || OutSize == 0) return TWBBlockBuffer::Create(0);
  if (I.Work.size() < OutSize) I.Work.resize(OutSize);

  ACMSTREAMHEADER Header = {};
  Header.cbStruct = sizeof Header;
  Header.pbSrc = I.Pending.data();
  Header.cbSrcLength = DWORD(I.Pending.size());
  Header.pbDst = I.Work.data();
  Header.cbDstLength = OutSize;
  FLastResult = acmStreamPrepareHeader(I.Stream, &Header, 0);
  if (FLastResult != MMSYSERR_NOERROR) return nullptr;
  DWORD Flags = ACM_STREAMCONVERTF_BLOCKALIGN | (Last ? ACM_STREAMCONVERTF_END : 0);
  if (I.First) Flags |= ACM_STREAMCONVERTF_START;
  FLastResult = acmStreamConvert(I.Stream, &Header, Flags);
  const size_t Used = std::min<size_t>(Header.cbSrcLengthUsed, I.Pending.size());
  const size_t Produced = std::min<size_t>(Header.cbDstLengthUsed, OutSize);
  Header.cbSrcLength = DWORD(I.Pending.size());
  Header.cbDstLength = OutSize;
  acmStreamUnprepareHeader(I.Stream, &Header, 0);
  if (FLastResult != MMSYSERR_NOERROR) return nullptr;
  I.First = false;
  I.Pending.erase(I.Pending.begin(), I.Pending.begin() + std::ptrdiff_t(Used));
  if (Last) I.Pending.clear();
  auto Block = TWBBlockBuffer::Create(Produced);
  if (Produced) std::memcpy(Block->GetData(), I.Work.data(), Produced);
  return IWBDataBufferRef(Block);
}

namespace {

BOOL CALLBACK AddFormat(HACMDRIVERID, LPACMFORMATDETAILSW Details, DWORD_PTR Instance, DWORD) noexcept {
  try {
    auto& Formats = *reinterpret_cast<std::vector<TSRAcmFormat>*>(Instance);
    const WAVEFORMATEX* F = Details->pwfx;
    const size_t Size =
        std::min<size_t>(sizeof(WAVEFORMATEX) + (F->wFormatTag == WAVE_FORMAT_PCM ? 0 : F->cbSize), Details->cbwfx);
    TSRAcmFormat Format;
    Format.Format.assign(reinterpret_cast<const uint8_t*>(F), reinterpret_cast<const uint8_t*>(F) + Size);
    if (F->wFormatTag == WAVE_FORMAT_PCM) reinterpret_cast<WAVEFORMATEX*>(Format.Format.data())->cbSize = 0;
    Format.Name = Platform::FromUtf16(Details->szFormat);
    Formats.push_back(std::move(Format));
    return TRUE;
  } catch (...) {
    return FALSE;
  }
}

BOOL CALLBACK AddFormatTag(HACMDRIVERID Driver, LPACMFORMATTAGDETAILSW Details, DWORD_PTR Instance, DWORD) noexcept {
  try {
    TSRAcmFormatTag Tag;
    Tag.Tag = uint16_t(Details->dwFormatTag);
    Tag.Name = Platform::FromUtf16(Details->szFormatTag);
    ACMDRIVERDETAILSW Codec = {};
    Codec.cbStruct = sizeof Codec;
    if (acmDriverDetailsW(Driver, &Codec, 0) == MMSYSERR_NOERROR) Tag.Codec = Platform::FromUtf16(Codec.szLongName);
    reinterpret_cast<std::vector<TSRAcmFormatTag>*>(Instance)->push_back(std::move(Tag));
    return TRUE;
  } catch (...) {
    return FALSE;
  }
}

}  // namespace

std::vector<TSRAcmFormatTag> EnumerateAcmFormatTags() {
  std::vector<TSRAcmFormatTag> Tags;
  ACMFORMATTAGDETAILSW Details = {};
  Details.cbStruct = sizeof Details;
  acmFormatTagEnumW(nullptr, &Details, AddFormatTag, reinterpret_cast<DWORD_PTR>(&Tags), 0);
  return Tags;
}

std::vector<TSRAcmFormat> EnumerateAcmFormats(uint16_t FormatTag) {
  std::vector<TSRAcmFormat> Formats;
  DWORD MaxSize = 0;
  if (acmMetrics(nullptr, ACM_METRIC_MAX_SIZE_FORMAT, &MaxSize) != MMSYSERR_NOERROR || MaxSize < sizeof(WAVEFORMATEX))
    return Formats;
  std::vector<uint8_t> Buffer(MaxSize);
  auto* Wave = reinterpret_cast<WAVEFORMATEX*>(Buffer.data());
  Wave->wFormatTag = FormatTag;
  ACMFORMATDETAILSW Details = {};
  Details.cbStruct = sizeof Details;
  Details.dwFormatTag = FormatTag;
  Details.pwfx = Wave;
  Details.cbwfx = MaxSize;
  acmFormatEnumW(nullptr, &Details, AddFormat, reinterpret_cast<DWORD_PTR>(&Formats),
                 FormatTag ? ACM_FORMATENUMF_WFORMATTAG : 0);
  return Formats;
}

}  // namespace Quorvel
