#include "media/Sraudiocompression.h"

#include <cstring>

#include "frame/Wbpersistence.h"

namespace Quorvel {

void TSRAudioCompressionItem::SetFormat(const TWaveFormatEx& Header, const void* Extra) {
  FFormat.assign(reinterpret_cast<const uint8_t*>(&Header), reinterpret_cast<const uint8_t*>(&Header) + sizeof Header);
  if (Header.cbSize && Extra)
    FFormat.insert(FFormat.end(), static_cast<const uint8_t*>(Extra), static_cast<const uint8_t*>(Extra) + Header.cbSize);
  else
    reinterpret_cast<TWaveFormatEx*>(FFormat.data())->cbSize = 0;
}

const TWaveFormatEx* TSRAudioCompressionItem::GetWaveFormat() const {
  if (FFormat.size() < sizeof(TWaveFormatEx)) return nullptr;
  const auto* Header = reinterpret_cast<const TWaveFormatEx*>(FFormat.data());
  return FFormat.size() == sizeof(TWaveFormatEx) + Header->cbSize ? Header : nullptr;
}

std::string TSRAudioCompressionItem::GetDisplayName() const {
  const TWaveFormatEx* F = GetWaveFormat();
  if (!F) return TWBCollectionItem::GetDisplayName() + " (no format)";
  char Text[96];
  std::snprintf(Text, sizeof Text, "Tag 0x%X, %u Hz, %u channel(s), %u bits", unsigned(F->wFormatTag),
                unsigned(F->nSamplesPerSec), unsigned(F->nChannels), unsigned(F->wBitsPerSample));
  return Text;
}

void TSRAudioCompressionItems::Assign(const TSRAudioCompressionItems& Source) {
  if (&Source == this) return;
  Clear();
  for (size_t I = 0; I < Source.Count(); ++I) {
    TSRAudioCompressionItem* Item = Add();
    Item->SetFormat(Source.Get(I)->GetFormat());
    Item->SetExcluded(Source.Get(I)->GetExcluded());
  }
}

TSRAudioCompressionItem* TSRAudioCompressionItems::FirstUsable(size_t From) const {
  for (size_t I = From; I < Count(); ++I)
    if (Get(I)->IsUsable()) return Get(I);
  return nullptr;
}

TWaveFormatEx CompressionSourceFormat(const TSRWaveFormatExtensible& Format) {
  TWaveFormatEx Source = Format.Format;
  if (Source.wFormatTag == WAVE_FORMAT_EXTENSIBLE && Format.SubFormat == KSDATAFORMAT_SUBTYPE_PCM)
    Source.wFormatTag = WAVE_FORMAT_PCM;
  Source.cbSize = 0;
  return Source;
}

const TWBClassInfo& TSRAudioCompressionItem::ClassInfo() {
  static const TWBClassInfo Info = [] {
    TWBPropertyInfo Format;
    Format.Name = "Format";
    Format.Default = TWBValue::Binary({});
    Format.Get = [](void* O) { return TWBValue::Binary(static_cast<TSRAudioCompressionItem*>(O)->GetFormat()); };
    Format.Set = [](void* O, const TWBValue& V, std::string& Why) {
      std::vector<uint8_t> Bytes;
      if (!V.AsBinary(Bytes)) {
        Why = "property Format: " + V.Describe() + " is not a valid value";
        return false;
      }
      static_cast<TSRAudioCompressionItem*>(O)->SetFormat(Bytes);
      return true;
    };
    return MakeClassInfo(
        "TSRAudioCompressionItem", nullptr,
        {Format, Property("Excluded", &TSRAudioCompressionItem::GetExcluded, &TSRAudioCompressionItem::SetExcluded,
                          false)});
  }();
  return Info;
}

}  // namespace Quorvel
