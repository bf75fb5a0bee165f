// The checks every XML document passes before and while the system reader
// walks it.
#include "platform/Xmlreader.h"

#include <algorithm>
#include <initializer_list>

namespace Quorvel::Platform {
namespace {

// The document as the checks below read it: bytes, or 16-bit units in one
// byte order, from First on (after a byte-order mark).
struct TUnits {
  const unsigned char* Data;
  size_t Size;
  size_t Width;
  bool BigEndian;
  size_t First;

  size_t End() const { return Size / Width; }
  unsigned operator[](size_t I) const {
    if (Width == 1) return Data[I];
    const unsigned char A = Data[2 * I], B = Data[2 * I + 1];
    return BigEndian ? (A << 8) | B : (B << 8) | A;
  }
  bool At(size_t I, const char* Text) const {
    for (; *Text; ++I, ++Text)
      if (I >= End() || (*this)[I] != static_cast<unsigned char>(*Text)) return false;
    return true;
  }
};

bool Starts(const unsigned char* Data, size_t Size, std::initializer_list<unsigned char> Bytes) {
  return Size >= Bytes.size() && std::equal(Bytes.begin(), Bytes.end(), Data);
}

// How the document's characters are laid out, as far as the checks need:
// 8-bit encodings that keep ASCII where it is, and UTF-16. The system
// readers also detect 32-bit and EBCDIC documents, in which the checks would
// see no tag at all: those are refused.
bool Layout(const unsigned char* Data, size_t Size, TUnits& Units, std::string& ErrorText) {
  if (Starts(Data, Size, {0x00, 0x00, 0xFE, 0xFF}) || Starts(Data, Size, {0xFF, 0xFE, 0x00, 0x00}) ||
      Starts(Data, Size, {0x00, 0x00, 0x00, 0x3C}) || Starts(Data, Size, {0x3C, 0x00, 0x00, 0x00}) ||
      Starts(Data, Size, {0x00, 0x00, 0x3C, 0x00}) || Starts(Data, Size, {0x00, 0x3C, 0x00, 0x00}) ||
      Starts(Data, Size, {0x4C, 0x6F, 0xA7, 0x94})) {
    ErrorText = "documents in 32-bit or EBCDIC encodings are refused";
    return false;
  }
  Units = {Data, Size, 1, false, 0};
  if (Starts(Data, Size, {0xFF, 0xFE}))
    Units = {Data, Size, 2, false, 1};
  else if (Starts(Data, Size, {0xFE, 0xFF}))
    Units = {Data, Size, 2, true, 1};
  else if (Starts(Data, Size, {0x3C, 0x00}))
    Units = {Data, Size, 2, false, 0};
  else if (Starts(Data, Size, {0x00, 0x3C}))
    Units = {Data, Size, 2, true, 0};
  else if (Starts(Data, Size, {0xEF, 0xBB, 0xBF}))
    Units.First = 3;
  return true;
}

char Lower(unsigned C) { return C >= 'A' && C <= 'Z' ? char(C - 'A' + 'a') : char(C); }

bool HasPrefix(const std::string& Text, const char* Prefix) { return Text.rfind(Prefix, 0) == 0; }

// The encoding the XML declaration names, in lower case ("" without one).
// A declaration names its encoding in ASCII whatever the encoding is.
std::string DeclaredEncoding(const TUnits& U) {
  const size_t End = U.End();
  const auto Space = [&](size_t J) { return J < End && (U[J] == ' ' || U[J] == '\t' || U[J] == '\r' || U[J] == '\n'); };
  if (!U.At(U.First, "<?xml") || !Space(U.First + 5)) return {};
  size_t I = U.First + 5;
  while (I < End && !U.At(I, "?>") && !U.At(I, "encoding")) ++I;
  if (I >= End || !U.At(I, "encoding")) return {};
  I += 8;
  while (Space(I)) ++I;
  if (I >= End || U[I] != '=') return {};
  ++I;
  while (Space(I)) ++I;
  if (I >= End || (U[I] != '"' && U[I] != '\'')) return {};
  const unsigned Quote = U[I++];
  std::string Name;
  for (; I < End && U[I] != Quote && Name.size() < 64; ++I) Name += Lower(U[I] < 0x80 ? U[I] : '?');
  return Name;
}

// Whether the checks read the declared encoding right: 8-bit documents in
// encodings that keep ASCII as it is, 16-bit ones in UTF-16. Others (UTF-7
// for one) could hide tags and attributes from them.
bool ScannableEncoding(const TUnits& U, const std::string& Name) {
  if (Name.empty()) return true;
  if (U.Width == 2) return Name == "utf-16" || Name == "utf-16le" || Name == "utf-16be" || Name == "ucs-2" ||
                           Name == "iso-10646-ucs-2";
  return Name == "utf-8" || Name == "utf8" || Name == "us-ascii" || Name == "ascii" || Name == "latin1" ||
         HasPrefix(Name, "iso-8859-") || HasPrefix(Name, "iso8859-") || HasPrefix(Name, "windows-125") ||
         HasPrefix(Name, "cp125");
}

// The most attributes any one tag may carry, counted as the '=' signs
// between one '<' and the next. No '<' can stand inside a tag or an
// attribute value, so all of a tag's attributes lie in that stretch; the
// '=' signs of text, comments and values make the count a few too many,
// never too few: a bound, not a parse. The system parsers compare each
// attribute with all before it, so a tag with a hundred thousand attributes
// would hold them for minutes.
size_t MostAttributesInOneTag(const TUnits& U) {
  size_t Most = 0, Count = 0;
  for (size_t I = U.First, End = U.End(); I < End; ++I) {
    const unsigned C = U[I];
    if (C == '<') Count = 0;
    else if (C == '=' && ++Count > Most) Most = Count;
  }
  return Most;
}

// A document type declaration anywhere in the document. The readers refuse
// one when they reach it as well; refusing it here spares parsing its
// declarations.
bool MentionsDocumentType(const TUnits& U) {
  for (size_t I = U.First, End = U.End(); I < End; ++I)
    if (U[I] == '<' && U.At(I, "<!DOCTYPE")) return true;
  return false;
}

}  // namespace

bool TXmlWalk::Start(const std::string& Name, const TXmlAttributes& Attributes) {
  if (FDepth >= FLimits.MaxDepth) {
    FErrorText = "elements nested deeper than " + std::to_string(FLimits.MaxDepth);
    return false;
  }
  if (FElements >= FLimits.MaxElements) {
    FErrorText = "more than " + std::to_string(FLimits.MaxElements) + " elements";
    return false;
  }
  ++FDepth;
  ++FElements;
  FHandler.StartElement(Name, Attributes);
  return true;
}

void TXmlWalk::End() {
  if (FDepth > 0) --FDepth;
  FHandler.EndElement();
}

bool ReadXmlDocument(const void* Data, size_t Size, IXmlElementHandler& Handler, std::string& ErrorText,
                     const TXmlLimits& Limits) {
  ErrorText.clear();
  if (!Data || Size == 0) {
    ErrorText = "empty document";
    return false;
  }
  if (Size > Limits.MaxBytes) {
    ErrorText = "document of " + std::to_string(Size) + " bytes, more than " + std::to_string(Limits.MaxBytes);
    return false;
  }
  TUnits Units{};
  if (!Layout(static_cast<const unsigned char*>(Data), Size, Units, ErrorText)) return false;
  const std::string Encoding = DeclaredEncoding(Units);
  if (!ScannableEncoding(Units, Encoding)) {
    ErrorText = "documents in encoding " + Encoding + " are refused";
    return false;
  }
  if (MostAttributesInOneTag(Units) > Limits.MaxAttributes) {
    ErrorText = "a tag with more than " + std::to_string(Limits.MaxAttributes) + " attributes";
    return false;
  }
  if (MentionsDocumentType(Units)) {
    ErrorText = "document type declarations are refused";
    return false;
  }
  TXmlWalk Walk(Handler, Limits, ErrorText);
  if (ReadXmlDocumentWithSystemReader(Data, Size, Walk, ErrorText)) return true;
  if (ErrorText.empty()) ErrorText = "malformed document";
  return false;
}

}  // namespace Quorvel::Platform
