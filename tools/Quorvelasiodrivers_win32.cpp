// Windows lists the drivers installed in the registry: nothing to add.
#include "tools/Quorvelcli.h"

namespace Quorvel::Cli {

void RegisterBundledAsioDrivers() {}

}  // namespace Quorvel::Cli
