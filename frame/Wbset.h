// Small set type over an enumeration: bit N of the mask is the member with
// ordinal N. Layout-compatible with its storage integer, so a set can sit in
// an ABI record where a 32-bit flag word is expected.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <type_traits>

namespace Quorvel {

template <typename E, typename Storage = uint32_t>
class TSet {
  static_assert(std::is_enum<E>::value, "TSet needs an enumeration");
  static_assert(std::is_unsigned<Storage>::value, "TSet storage is an unsigned integer");

 public:
  constexpr TSet() noexcept = default;
  constexpr TSet(std::initializer_list<E> Members) noexcept {
    for (E M : Members) FMask |= Bit(M);
  }
  static constexpr TSet FromMask(Storage Mask) noexcept {
    TSet S;
    S.FMask = Mask;
    return S;
  }

  constexpr TSet& Include(E M) noexcept { FMask |= Bit(M); return *this; }
  constexpr TSet& Exclude(E M) noexcept { FMask &= static_cast<Storage>(~Bit(M)); return *this; }
  constexpr bool Contains(E M) const noexcept { return (FMask & Bit(M)) != 0; }
  constexpr bool Empty() const noexcept { return FMask == 0; }
  constexpr Storage Mask() const noexcept { return FMask; }

  constexpr TSet operator+(TSet O) const noexcept { return FromMask(FMask | O.FMask); }
  constexpr TSet operator-(TSet O) const noexcept { return FromMask(FMask & static_cast<Storage>(~O.FMask)); }
  constexpr TSet operator*(TSet O) const noexcept { return FromMask(FMask & O.FMask); }
  constexpr bool operator==(TSet O) const noexcept { return FMask == O.FMask; }
  constexpr bool operator!=(TSet O) const noexcept { return FMask != O.FMask; }

  static constexpr Storage Bit(E M) noexcept {
    return static_cast<Storage>(Storage{1} << static_cast<unsigned>(M));
  }

 private:
  Storage FMask = 0;
};

}  // namespace Quorvel
