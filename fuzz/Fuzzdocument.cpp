// libFuzzer target: chain documents. Any text is parsed; a document that
// parses is loaded into components (which must never crash, hang or leak,
// whatever the classes, properties, values and connections say), saved again,
// and the saved text must parse back to the same document.
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "frame/Wbcomponent.h"
#include "frame/Wbdocument.h"

using namespace Quorvel;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* Data, size_t Size) {
  const std::string Text(reinterpret_cast<const char*>(Data), Size);
  TWBDocument Document;
  std::string Error;
  if (!ParseDocument(Text, Document, Error)) return 0;
  // File names in a fuzzed document must not reach the disk: only documents
  // whose components write nothing are loaded.
  for (const auto& C : Document.Components)
    if (C.ClassName == "TSRAudioFileSink" || C.ClassName == "TSRWaveFileWriter") return 0;
  TWBComponent Form;
  std::vector<TWBComponent*> Made;
  if (!LoadDocument(Document, Form, Made, Error)) return 0;
  const std::string Saved = WriteDocument(SaveDocument(Made));
  TWBDocument Again;
  if (!ParseDocument(Saved, Again, Error)) __builtin_trap();
  if (WriteDocument(Again) != Saved) __builtin_trap();
  return 0;
}
