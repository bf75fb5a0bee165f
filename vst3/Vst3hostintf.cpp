#include "vst3/Vst3hostintf.h"

#include <cstdio>

namespace Quorvel::Vst3hostintf {

std::string VST3UIDToString(const TGUID& ID) {
  uint32_t D1 = ID.D1;
  uint16_t D2 = ID.D2, D3 = ID.D3;
  if (!Platform::kVst3ComByteOrder) {
    // The bytes are in written order: read the first fields big-endian.
    const auto* B = reinterpret_cast<const uint8_t*>(&ID);
    D1 = uint32_t(B[0]) << 24 | uint32_t(B[1]) << 16 | uint32_t(B[2]) << 8 | B[3];
    D2 = static_cast<uint16_t>(B[4] << 8 | B[5]);
    D3 = static_cast<uint16_t>(B[6] << 8 | B[7]);
  }
  char Text[40];
  std::snprintf(Text, sizeof Text, "{%08X-%04X-%04X-%02X%02X-%02X%02X%02X%02X%02X%02X}", static_cast<unsigned>(D1),
                unsigned(D2), unsigned(D3), ID.D4[0], ID.D4[1], ID.D4[2], ID.D4[3], ID.D4[4], ID.D4[5], ID.D4[6],
                ID.D4[7]);
  return Text;
}

// Kept exactly as the component always had it, duplicates included (VK_NEXT
// at 7 and 15, VK_RETURN at 3, 18 and 56): the first match wins, so page-down
// yields KEY_NEXT and return KEY_RETURN.
const uint16_t kVST3SpecialKeys[64] = {
    0x08, 0x09, 0x0C, 0x0D, 0x13, 0x1B, 0x20, 0x22, 0x23, 0x24, 0x25, 0x26, 0x27, 0x28, 0x21, 0x22,
    0x29, 0x2A, 0x0D, 0x2C, 0x2D, 0x2E, 0x2F, 0x60, 0x61, 0x62, 0x63, 0x64, 0x65, 0x66, 0x67, 0x68,
    0x69, 0x6A, 0x6B, 0x6C, 0x6D, 0x6E, 0x6F, 0x70, 0x71, 0x72, 0x73, 0x74, 0x75, 0x76, 0x77, 0x78,
    0x79, 0x7A, 0x7B, 0x90, 0x91, 0x10, 0x11, 0x12, 0x0D, 0x5D, 0xFA, 0xB2, 0xB1, 0xB0, 0xAF, 0xAE};

uint16_t VST3CharToVirtualKeyCode(char C) {
  if ((C >= '0' && C <= '9') || (C >= 'A' && C <= 'Z')) return static_cast<uint16_t>(static_cast<uint8_t>(C) + 80);
  if (C == ' ') return 7;
  return 0;
}

char VST3VirtualKeyCodeToChar(uint8_t Code) {
  if (Code >= 128) return static_cast<char>(Code - 80);
  if (Code == 7) return ' ';
  return 0;
}

bool VST3ConvertSpecialCode(uint16_t WindowsKey, uint16_t& Code) {
  for (uint16_t I = 0; I < 64; ++I)
    if (kVST3SpecialKeys[I] == WindowsKey) {
      Code = static_cast<uint16_t>(I + 1);
      return true;
    }
  return false;
}

}  // namespace Quorvel::Vst3hostintf
