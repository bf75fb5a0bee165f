// UTF-8 encoding of one code point, shared by the units that turn UTF-16
// record texts into the package's UTF-8 strings.
#pragma once

#include <cstdint>
#include <string>

namespace Quorvel::Utf8 {

inline void AppendUtf8(std::string& Out, uint32_t C) {
  if (C < 0x80) {
    Out += static_cast<char>(C);
  } else if (C < 0x800) {
    Out += static_cast<char>(0xC0 | (C >> 6));
    Out += static_cast<char>(0x80 | (C & 0x3F));
  } else if (C < 0x10000) {
    Out += static_cast<char>(0xE0 | (C >> 12));
    Out += static_cast<char>(0x80 | ((C >> 6) & 0x3F));
    Out += static_cast<char>(0x80 | (C & 0x3F));
  } else {
    Out += static_cast<char>(0xF0 | (C >> 18));
    Out += static_cast<char>(0x80 | ((C >> 12) & 0x3F));
    Out += static_cast<char>(0x80 | ((C >> 6) & 0x3F));
    Out += static_cast<char>(0x80 | (C & 0x3F));
  }
}

}  // namespace Quorvel::Utf8
