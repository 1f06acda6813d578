// The tagged container in which guest and host exchange the data of their commands: items back to back, each
// index, type and size (u32, little-endian) and `size` value bytes. There is no header and no terminator; the
// length travels beside it. The composer writes one; bit_box and its iterator read one that came from
// outside, so every step of the iterator checks that the item lies inside the box.
#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "xdt/exception/exc_tag.h"

namespace xdt {

static_assert(std::endian::native == std::endian::little,
              "numbers are copied to and from the wire as they are");

// A view of bytes that someone else owns and that outlive it.
class bit_box {
 public:
  class const_iterator;
  class composer;

  static constexpr std::uint32_t header_size = 12;

  bit_box(const std::byte* data, std::uint32_t size) : data_(data), size_(size) {}
  bit_box(const bit_box&) = default;
  bit_box& operator=(const bit_box&) = default;
  virtual ~bit_box() = default;

  // Raises "item exceeds its bit_box" when the first item does not fit.
  const_iterator begin() const;

 private:
  const std::byte* data_;
  std::uint32_t size_;
};

class bit_box::const_iterator {
 public:
  // `current` to `end` are the bytes still to be read. Raises "item exceeds its bit_box".
  const_iterator(const std::byte* current, const std::byte* end) : current_(current), end_(end) { check(); }
  const_iterator(const const_iterator&) = default;
  const_iterator& operator=(const const_iterator&) = default;
  virtual ~const_iterator() = default;

  bool at_end() const { return current_ == end_; }

  // Of the current item; there is one while at_end() is false. The value is not copied.
  std::uint32_t type() const { return read(4); }
  std::uint32_t size() const { return read(8); }
  const std::byte* value() const { return current_ + header_size; }

  // The value as text up to its first NUL; raises "string is not terminated" when it holds none.
  std::string_view string() const {
    const auto* text = reinterpret_cast<const char*>(value());
    const std::string_view bytes(text, size());
    const std::size_t end = bytes.find('\0');
    if (end == std::string_view::npos) XDT_RAISE("string is not terminated");
    return bytes.substr(0, end);
  }

  // The value's first four bytes as a number; raises "item exceeds its bit_box" when there are fewer.
  std::uint32_t number() const {
    if (size() < 4) XDT_RAISE("item exceeds its bit_box");
    return read(header_size);
  }

  // Moves to the next item or the end. Raises "item exceeds its bit_box" when the next item does not fit.
  const_iterator& operator++() {
    current_ += header_size + size();
    check();
    return *this;
  }

 private:
  std::uint32_t read(std::size_t offset) const {
    std::uint32_t number;
    std::memcpy(&number, current_ + offset, sizeof number);
    return number;
  }

  void check() const {
    const auto left = static_cast<std::size_t>(end_ - current_);
    if (left == 0) return;
    if (left < header_size || size() > left - header_size) XDT_RAISE("item exceeds its bit_box");
  }

  const std::byte* current_;
  const std::byte* end_;
};

inline bit_box::const_iterator bit_box::begin() const {
  return {data_, data_ + size_};
}

// Writes items one after the other into a buffer of its own that grows as needed.
class bit_box::composer {
 public:
  composer() = default;
  composer(const composer&) = delete;
  composer& operator=(const composer&) = delete;
  virtual ~composer() { std::free(buffer_); }

  // Copies `size` bytes into a new item. Raises "BAD_REALLOC"; the items written before are then still there.
  void append(std::uint32_t type, const void* value, std::uint32_t size) {
    const std::uint32_t needed = size + header_size;
    if (needed < size) XDT_RAISE("BAD_REALLOC");  // more than the format can count
    if (capacity_ - used_ < needed) grow(needed);
    const std::uint32_t header[] = {next_index_, type, size};
    std::memcpy(buffer_ + used_, header, header_size);
    if (size != 0) std::memcpy(buffer_ + used_ + header_size, value, size);
    ++next_index_;
    used_ += needed;
  }

  void append_uint32(std::uint32_t number) { append(type_uint32, &number, sizeof number); }

  // `text` is UTF-8 and ends with a NUL, which becomes part of the value.
  void append_string(const char* text) {
    append(type_string, text, static_cast<std::uint32_t>(std::strlen(text) + 1));
  }

  // The items so far; the buffer belongs to the composer and moves when it grows. Null while empty.
  const std::byte* data() const { return buffer_; }
  std::uint32_t size() const { return used_; }
  std::uint32_t capacity() const { return capacity_; }

 private:
  static constexpr std::uint32_t type_uint32 = 1;
  static constexpr std::uint32_t type_string = 3;

  void grow(std::uint32_t needed) {
    const std::uint32_t capacity = needed + 2 * capacity_;
    void* buffer = std::realloc(buffer_, capacity);
    if (buffer == nullptr) XDT_RAISE("BAD_REALLOC");
    buffer_ = static_cast<std::byte*>(buffer);
    capacity_ = capacity;
  }

  std::byte* buffer_ = nullptr;
  std::uint32_t used_ = 0;
  std::uint32_t capacity_ = 0;
  std::uint32_t next_index_ = 0;
};

}  // namespace xdt
