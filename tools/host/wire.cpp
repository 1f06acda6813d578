// Envelopes, items and bitmaps.
#include "host/wire.h"

namespace host {

Bytes Envelope(std::uint32_t code, std::span<const std::byte> data, std::uint32_t result) {
  Bytes envelope;
  for (const std::uint32_t field : {code, 3u, result, 0u, static_cast<std::uint32_t>(data.size())}) {
    PutU32(envelope, field);
  }
  envelope.insert(envelope.end(), data.begin(), data.end());
  return envelope;
}

Items& Items::Add(std::uint32_t type, std::span<const std::byte> value) {
  for (const std::uint32_t field : {count_++, type, static_cast<std::uint32_t>(value.size())})
    PutU32(bytes_, field);
  bytes_.insert(bytes_.end(), value.begin(), value.end());
  return *this;
}

Items& Items::Text(std::uint32_t type, std::string_view text) {
  const auto characters = std::as_bytes(std::span(text));
  Bytes value(characters.begin(), characters.end());
  value.push_back(std::byte{0});
  return Add(type, value);
}

Items& Items::Number(std::uint32_t type, std::uint32_t number) {
  Bytes value;
  PutU32(value, number);
  return Add(type, value);
}

bool TakeItem(std::span<const std::byte>& data, Item& item) {
  if (data.size() < itemHeader || GetU32(data, 8) > data.size() - itemHeader) return false;
  item = {GetU32(data, 0), GetU32(data, 4), data.subspan(itemHeader, GetU32(data, 8))};
  data = data.subspan(itemHeader + item.value.size());
  return true;
}

Bytes BlankBitmap(std::uint32_t width, std::uint32_t height, std::uint32_t bits) {
  constexpr std::uint32_t headers = 54;
  const std::uint32_t pixels = (width * bits / 8 + 3) / 4 * 4 * height;
  Bytes bmp;
  bmp.reserve(headers + pixels);
  PutU16(bmp, 0x4D42);
  for (const std::uint32_t field : {headers + pixels, 0u, headers, 40u, width, height}) PutU32(bmp, field);
  PutU16(bmp, 1);
  PutU16(bmp, bits);
  for (const std::uint32_t field : {0u, pixels, 2835u, 2835u, 0u, 0u}) PutU32(bmp, field);  // 72 dots an inch
  bmp.resize(headers + pixels);
  return bmp;
}

}  // namespace host
