// The one exception type that components raise for unhandled errors.
#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>

namespace Quorvel {

class EWBException : public std::runtime_error {
 public:
  explicit EWBException(const std::string& Message) : std::runtime_error(Message) {}
  // The text a component's unhandled error carries: the message, then the
  // code in decimal and in hexadecimal (capital digits), both as unsigned
  // 32-bit: -1 reads "... - 4294967295 - FFFFFFFF".
  static std::string FormatError(const std::string& Message, int32_t Code);
};

}  // namespace Quorvel
