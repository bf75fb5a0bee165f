#include "frame/Wbexception.h"

#include <cstdio>

namespace Quorvel {

std::string EWBException::FormatError(const std::string& Message, int32_t Code) {
  const auto U = static_cast<uint32_t>(Code);
  char Tail[40];
  std::snprintf(Tail, sizeof Tail, " - %u - %X", static_cast<unsigned>(U), static_cast<unsigned>(U));
  return Message + Tail;
}

}  // namespace Quorvel
