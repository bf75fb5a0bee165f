// XML documents through XmlLite, which Windows (and Wine) ship as
// xmllite.dll. MinGW has its header but no import library, so the one entry
// point is looked up at run time.
#include "platform/Xmlreader.h"

#include <windows.h>
#include <objidl.h>
#include <shlwapi.h>
#include <xmllite.h>

#include "platform/Win32text_win32.h"

namespace Quorvel::Platform {
namespace {

using TCreateXmlReader = HRESULT(WINAPI*)(REFIID, void**, IMalloc*);

TCreateXmlReader CreateReaderEntry() {
  // Loaded once and kept for the life of the process.
  static const TCreateXmlReader Entry = [] {
    HMODULE Module = LoadLibraryExW(L"xmllite.dll", nullptr, LOAD_LIBRARY_SEARCH_SYSTEM32);
    if (!Module) Module = LoadLibraryW(L"xmllite.dll");
    return Module ? reinterpret_cast<TCreateXmlReader>(reinterpret_cast<void*>(GetProcAddress(Module, "CreateXmlReader")))
                  : nullptr;
  }();
  return Entry;
}

template <typename T>
struct TReleaser {
  T* Object = nullptr;
  ~TReleaser() {
    if (Object) Object->Release();
  }
};

bool Name(IXmlReader* Reader, std::string& Out) {
  const wchar_t* Text = nullptr;
  UINT Length = 0;
  if (FAILED(Reader->GetQualifiedName(&Text, &Length))) return false;
  Out = FromUtf16(Text, Length);
  return true;
}

bool Value(IXmlReader* Reader, std::string& Out) {
  const wchar_t* Text = nullptr;
  UINT Length = 0;
  if (FAILED(Reader->GetValue(&Text, &Length))) return false;
  Out = FromUtf16(Text, Length);
  return true;
}

}  // namespace

bool ReadXmlDocumentWithSystemReader(const void* Data, size_t Size, TXmlWalk& Walk, std::string& ErrorText) {
  const TCreateXmlReader Create = CreateReaderEntry();
  if (!Create) {
    ErrorText = "xmllite.dll is not available";
    return false;
  }
  if (Size > size_t(UINT32_MAX)) return false;
  TReleaser<IStream> Stream{SHCreateMemStream(static_cast<const BYTE*>(Data), static_cast<UINT>(Size))};
  TReleaser<IXmlReader> Reader;
  if (!Stream.Object || FAILED(Create(__uuidof(IXmlReader), reinterpret_cast<void**>(&Reader.Object), nullptr)) ||
      !Reader.Object) {
    ErrorText = "the XML reader could not be made";
    return false;
  }
  IXmlReader* R = Reader.Object;
  // No DTD at all (entities and external resources come with one), and no
  // resolver to fetch anything (a reader that has none already says so).
  R->SetProperty(XmlReaderProperty_XmlResolver, 0);
  if (FAILED(R->SetProperty(XmlReaderProperty_DtdProcessing, DtdProcessing_Prohibit)) ||
      FAILED(R->SetInput(Stream.Object))) {
    ErrorText = "the XML reader refused its settings";
    return false;
  }
  TXmlAttributes Attributes;
  std::string ElementName;
  XmlNodeType Type = XmlNodeType_None;
  HRESULT Result;
  while ((Result = R->Read(&Type)) == S_OK) {
    switch (Type) {
      case XmlNodeType_DocumentType:
        ErrorText = "document type declarations are refused";
        return false;
      case XmlNodeType_Element: {
        const bool Empty = R->IsEmptyElement() != FALSE;
        if (!Name(R, ElementName)) return false;
        Attributes.clear();
        for (HRESULT At = R->MoveToFirstAttribute(); At == S_OK; At = R->MoveToNextAttribute()) {
          std::string AttributeName, AttributeValue;
          if (!Name(R, AttributeName) || !Value(R, AttributeValue)) return false;
          Attributes.emplace_back(std::move(AttributeName), std::move(AttributeValue));
        }
        if (!Walk.Start(ElementName, Attributes)) return false;
        if (Empty) Walk.End();
        break;
      }
      case XmlNodeType_EndElement: Walk.End(); break;
      default: break;
    }
  }
  if (Result != S_FALSE) {
    char Code[64];
    wsprintfA(Code, "XmlLite error 0x%08lX", static_cast<unsigned long>(Result));
    ErrorText = Code;
    return false;
  }
  return true;
}

}  // namespace Quorvel::Platform
