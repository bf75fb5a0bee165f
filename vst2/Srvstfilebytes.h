// Byte order and text fields of the preset and bank file records, shared by
// the host's parameter and file code. The records hold the files' bytes:
// their 32-bit fields are big-endian whatever the machine.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string>

namespace Quorvel::Srvstfilebytes {

inline void PutBigEndian(int32_t& Field, int32_t Value) {
  const uint32_t V = static_cast<uint32_t>(Value);
  const uint8_t B[4] = {uint8_t(V >> 24), uint8_t(V >> 16), uint8_t(V >> 8), uint8_t(V)};
  std::memcpy(&Field, B, 4);
}

inline int32_t GetBigEndian(const int32_t& Field) {
  uint8_t B[4];
  std::memcpy(B, &Field, 4);
  return static_cast<int32_t>(uint32_t(B[0]) << 24 | uint32_t(B[1]) << 16 | uint32_t(B[2]) << 8 | B[3]);
}

// A float's bits, big-endian, at Out.
inline void PutBigEndianFloat(uint8_t* Out, float Value) {
  uint32_t V;
  std::memcpy(&V, &Value, 4);
  Out[0] = uint8_t(V >> 24);
  Out[1] = uint8_t(V >> 16);
  Out[2] = uint8_t(V >> 8);
  Out[3] = uint8_t(V);
}

inline float GetBigEndianFloat(const uint8_t* In) {
  const uint32_t V = uint32_t(In[0]) << 24 | uint32_t(In[1]) << 16 | uint32_t(In[2]) << 8 | In[3];
  float Value;
  std::memcpy(&Value, &V, 4);
  return Value;
}

// Kept as the component always did: a program name is cut to 26 characters
// in the 28-byte field, zero-padded.
inline void PutProgramName(char (&Field)[28], const std::string& Name) {
  std::memset(Field, 0, sizeof Field);
  std::memcpy(Field, Name.data(), std::min<size_t>(Name.size(), 26));
}

// The text of a 28-byte name field, up to its first zero.
inline std::string ProgramNameText(const char (&Field)[28]) {
  return std::string(Field, std::find(Field, Field + sizeof Field, '\0'));
}

}  // namespace Quorvel::Srvstfilebytes
