// No ASIO registry here: the test drivers built with the package go into the
// in-process driver catalogue, so that `quorvel asio` has drivers to show.
#include "testplugins/asio/Qvtestasio.h"
#include "tools/Quorvelcli.h"

namespace Quorvel::Cli {

void RegisterBundledAsioDrivers() { QvTestAsioRegisterDrivers(); }

}  // namespace Quorvel::Cli
