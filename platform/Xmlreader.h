// Reading XML documents from memory: libxml2 natively, XmlLite on Windows.
// The reader walks a whole document and hands its elements, with their
// attributes, to a handler in document order; text, comments and processing
// instructions are skipped. Documents come from plug-ins and files nobody
// checked, so the reader is strict and bounded:
//   - nothing is fetched from the network or other files, and a document
//     with a document type declaration (a DTD, where entities live) is
//     refused as a whole;
//   - documents beyond MaxBytes, deeper than MaxDepth, with more than
//     MaxElements elements or with a tag of more than MaxAttributes
//     attributes are refused before they can exhaust memory or time;
//   - so are documents whose encoding could hide tags from those checks:
//     only 8-bit encodings that keep ASCII as it is (UTF-8, ISO-8859-x,
//     windows-125x) and UTF-16 are read.
// A refused or malformed document answers false; the handler may have seen
// the elements before the fault and must then forget them.
#pragma once

#include <cstddef>
#include <string>
#include <utility>
#include <vector>

namespace Quorvel::Platform {

// (qualified name, value) pairs of one element, in document order; values
// with character and the predefined entity references replaced.
using TXmlAttributes = std::vector<std::pair<std::string, std::string>>;

class IXmlElementHandler {
 public:
  virtual ~IXmlElementHandler() = default;
  // Name is the element's qualified name as written ("a:b" stays "a:b").
  virtual void StartElement(const std::string& Name, const TXmlAttributes& Attributes) = 0;
  virtual void EndElement() = 0;
};

struct TXmlLimits {
  size_t MaxBytes = size_t(16) << 20;
  int MaxDepth = 64;  // the document element is depth 1
  size_t MaxElements = size_t(1) << 18;
  size_t MaxAttributes = 1024;  // per tag
};

// [any thread] Reads the UTF-8 (or declared-encoding) document in Data. Answers
// false with a short reason in ErrorText when it is malformed or refused.
bool ReadXmlDocument(const void* Data, size_t Size, IXmlElementHandler& Handler, std::string& ErrorText,
                     const TXmlLimits& Limits = TXmlLimits());

// For the system readers (one per OS) behind ReadXmlDocument: they get a
// document that passed the size and attribute-count checks and report each
// element through a TXmlWalk, which keeps the depth and element limits.
class TXmlWalk {
 public:
  TXmlWalk(IXmlElementHandler& Handler, const TXmlLimits& Limits, std::string& ErrorText)
      : FHandler(Handler), FLimits(Limits), FErrorText(ErrorText) {}
  // False (with the reason set) when the element is one too deep or too many.
  bool Start(const std::string& Name, const TXmlAttributes& Attributes);
  void End();

 private:
  IXmlElementHandler& FHandler;
  const TXmlLimits& FLimits;
  std::string& FErrorText;
  int FDepth = 0;
  size_t FElements = 0;
};

bool ReadXmlDocumentWithSystemReader(const void* Data, size_t Size, TXmlWalk& Walk, std::string& ErrorText);

}  // namespace Quorvel::Platform
