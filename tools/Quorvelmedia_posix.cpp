// The DMO and ACM commands where there is neither: one line and status 1.
#include "tools/Quorvelcli.h"
#include "tools/Quorvelmedia.h"

namespace Quorvel::Cli {

int Dmo(const TArgs&) { return Fail("DMO effects need Windows (DirectX Media Objects)"); }
int Ds(const TArgs&) { return Fail("DirectShow filters need Windows (its filter graphs)"); }
int Acm(const TArgs&) { return Fail("ACM codecs need Windows (the Audio Compression Manager)"); }
int Encode(const TArgs&) { return Fail("encoding needs Windows (the Audio Compression Manager)"); }
int Decode(const TArgs&) { return Fail("decoding needs Windows (the Audio Compression Manager)"); }

std::string FindCodecFormat(const std::string& Name, uint32_t, uint32_t, std::vector<uint8_t>&) {
  return "--format " + Name + ": compressed formats need Windows (the Audio Compression Manager)";
}

}  // namespace Quorvel::Cli
