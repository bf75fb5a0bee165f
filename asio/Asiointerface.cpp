// Registry-level driver services and the flat wrappers over IASIO.
#include "asio/Asiointerface.h"
