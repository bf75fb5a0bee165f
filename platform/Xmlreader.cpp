// The checks every XML document passes before and while the system reader
// walks it.
#include "platform/Xmlreader.h"

#include <algorithm>

namespace Quorvel::Platform {
namespace {

// The most attributes any one tag seems to carry, counted as the '=' signs
// between '<' and '>' outside quotes. Comments and text may make it count a
// few too many, never too few: a bound, not a parse. The system parsers
// compare each attribute with all before it, so a tag with a hundred
// thousand attributes would hold them for minutes.
size_t MostAttributesInOneTag(const char* Text, size_t Size) {
  size_t Most = 0, Count = 0;
  bool InTag = false;
  char Quote = 0;
  for (size_t I = 0; I < Size; ++I) {
    const char C = Text[I];
    if (Quote) {
      if (C == Quote) Quote = 0;
    } else if (!InTag) {
      if (C == '<') InTag = true, Count = 0;
    } else if (C == '"' || C == '\'') {
      Quote = C;
    } else if (C == '>') {
      InTag = false;
    } else if (C == '=' && ++Count > Most) {
      Most = Count;
    }
  }
  return Most;
}

// A document type declaration anywhere in the bytes. The readers refuse one
// when they reach it as well (a document may declare an encoding that hides
// it from this look); refusing it here spares parsing its declarations.
bool MentionsDocumentType(const char* Text, size_t Size) {
  static const std::string Mark = "<!DOCTYPE";
  return std::search(Text, Text + Size, Mark.begin(), Mark.end()) != Text + Size;
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
  if (MostAttributesInOneTag(static_cast<const char*>(Data), Size) > Limits.MaxAttributes) {
    ErrorText = "a tag with more than " + std::to_string(Limits.MaxAttributes) + " attributes";
    return false;
  }
  if (MentionsDocumentType(static_cast<const char*>(Data), Size)) {
    ErrorText = "document type declarations are refused";
    return false;
  }
  TXmlWalk Walk(Handler, Limits, ErrorText);
  if (ReadXmlDocumentWithSystemReader(Data, Size, Walk, ErrorText)) return true;
  if (ErrorText.empty()) ErrorText = "malformed document";
  return false;
}

}  // namespace Quorvel::Platform
