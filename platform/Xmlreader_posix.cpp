// XML documents through libxml2's streaming reader.
#include "platform/Xmlreader.h"

#include <libxml/parser.h>
#include <libxml/xmlreader.h>

#include <memory>
#include <mutex>

namespace Quorvel::Platform {
namespace {

struct TReaderFree {
  void operator()(xmlTextReaderPtr Reader) const { xmlFreeTextReader(Reader); }
};

// libxml2 reports some faults (undecodable bytes, for one) through its
// generic error function whatever the parser options say: while a document
// is read, this thread's function says nothing.
void Quiet(void*, const char*, ...) {}

class TQuietErrors {
 public:
  TQuietErrors() : FFunction(xmlGenericError), FContext(xmlGenericErrorContext) {
    xmlSetGenericErrorFunc(nullptr, &Quiet);
  }
  ~TQuietErrors() { xmlSetGenericErrorFunc(FContext, FFunction); }

 private:
  xmlGenericErrorFunc FFunction;
  void* FContext;
};

std::string Text(const xmlChar* Value) { return Value ? reinterpret_cast<const char*>(Value) : std::string(); }

}  // namespace

bool ReadXmlDocumentWithSystemReader(const void* Data, size_t Size, TXmlWalk& Walk, std::string& ErrorText) {
  static std::once_flag Initialised;
  std::call_once(Initialised, [] { xmlInitParser(); });
  if (Size > size_t(INT32_MAX)) return false;
  const TQuietErrors Quieted;
  // No network, no messages on stderr; entities are not substituted, no
  // external DTD is loaded and no default attributes come from one
  // (XML_PARSE_NOENT, _DTDLOAD and _DTDATTR stay off), and libxml2 keeps its
  // own limits on depth and entity growth (no XML_PARSE_HUGE).
  std::unique_ptr<xmlTextReader, TReaderFree> Reader(
      xmlReaderForMemory(static_cast<const char*>(Data), static_cast<int>(Size), nullptr, nullptr,
                         XML_PARSE_NONET | XML_PARSE_NOERROR | XML_PARSE_NOWARNING));
  if (!Reader) {
    ErrorText = "the XML reader could not be made";
    return false;
  }
  xmlResetLastError();
  xmlTextReaderPtr R = Reader.get();
  TXmlAttributes Attributes;
  int Result;
  while ((Result = xmlTextReaderRead(R)) == 1) {
    switch (xmlTextReaderNodeType(R)) {
      case XML_READER_TYPE_DOCUMENT_TYPE:
        ErrorText = "document type declarations are refused";
        return false;
      case XML_READER_TYPE_ELEMENT: {
        const std::string Name = Text(xmlTextReaderConstName(R));
        const bool Empty = xmlTextReaderIsEmptyElement(R) == 1;
        Attributes.clear();
        while (xmlTextReaderMoveToNextAttribute(R) == 1)
          Attributes.emplace_back(Text(xmlTextReaderConstName(R)), Text(xmlTextReaderConstValue(R)));
        if (!Walk.Start(Name, Attributes)) return false;
        if (Empty) Walk.End();
        break;
      }
      case XML_READER_TYPE_END_ELEMENT: Walk.End(); break;
      default: break;
    }
  }
  if (Result != 0) {
    const xmlError* Error = xmlGetLastError();
    ErrorText = Error && Error->message ? Text(reinterpret_cast<const xmlChar*>(Error->message)) : "malformed document";
    while (!ErrorText.empty() && (ErrorText.back() == '\n' || ErrorText.back() == ' ')) ErrorText.pop_back();
    return false;
  }
  return true;
}

}  // namespace Quorvel::Platform
