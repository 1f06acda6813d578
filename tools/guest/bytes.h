// Bytes, and little-endian numbers in them. Who reads foreign bytes checks their bounds first: Get does not.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace host {

using Bytes = std::vector<std::byte>;

inline void PutU16(Bytes& out, std::uint32_t value) {
  out.push_back(static_cast<std::byte>(value));
  out.push_back(static_cast<std::byte>(value >> 8));
}

inline void PutU32(Bytes& out, std::uint32_t value) {
  PutU16(out, value);
  PutU16(out, value >> 16);
}

inline std::uint16_t GetU16(std::span<const std::byte> in, std::size_t at) {
  return static_cast<std::uint16_t>(std::to_integer<unsigned>(in[at]) | std::to_integer<unsigned>(in[at + 1])
                                                                            << 8);
}

inline std::uint32_t GetU32(std::span<const std::byte> in, std::size_t at) {
  return GetU16(in, at) | static_cast<std::uint32_t>(GetU16(in, at + 2)) << 16;
}

}  // namespace host
