// `quorvel volume` where there is no Core Audio: one line and status 1.
#include "tools/Quorvelcli.h"

namespace Quorvel::Cli {

int Volume(const TArgs& Args) { return Fail("audio endpoint volumes need Windows (Core Audio)"); }

}  // namespace Quorvel::Cli
