// A second reading of replies, as plain as it can be written: item by item, pixel by pixel.
#include "trials/expectations.h"

#include <algorithm>

#include "host/replies.h"
#include "host/text.h"

namespace trials {
namespace {

constexpr std::size_t headerSize = 20, itemHeaderSize = 12;
constexpr WORD groupId = 448;

bool HasNul(const Item& item) {
  return std::ranges::find(item.value, std::byte{0}) != item.value.end();
}

std::basic_string<WCHAR> TextOf(const Item& item) {
  const auto length = std::ranges::find(item.value, std::byte{0}) - item.value.begin();
  return host::Widen({reinterpret_cast<const char*>(item.value.data()), static_cast<std::size_t>(length)});
}

std::string TakeList(const std::vector<Item>& items, bool whole, Taken& taken) {
  Taken::Texts texts;
  std::string raised;
  for (const Item& item : items) {
    if (item.type != 3) raised = "type WMA_Command::bbt_utf8string expected";
    if (item.type == 3 && !HasNul(item)) raised = "string is not terminated";
    if (!raised.empty()) break;
    texts.push_back(TextOf(item));
  }
  if (raised.empty() && !whole) raised = "item exceeds its bit_box";
  if (raised.empty() && texts.size() % 2 != 0) raised = "list format error";
  texts.resize(texts.size() / 2 * 2);  // whole pairs only
  taken.texts = std::move(texts);
  return raised;
}

std::string TakeDetails(const std::vector<Item>& items, bool whole, Taken& taken) {
  for (const Item& item : items) {
    if (item.type == 3 || item.type == 5 || item.type == 6) {
      if (!HasNul(item)) return "string is not terminated";
      Taken::Texts& texts = item.type == 3 ? taken.texts : item.type == 5 ? taken.defaults : taken.schemes;
      texts.push_back(TextOf(item));
    } else if (item.type == 4) {
      if (item.value.size() < 4) return "item exceeds its bit_box";
      taken.anyType = host::GetU32(item.value, 0) != 0;
    }
  }
  return whole ? "" : "item exceeds its bit_box";
}

std::string TakeIcons(const std::vector<Item>& items, bool whole, Taken& taken) {
  if (std::ranges::any_of(items, [](const Item& item) { return item.type != 2; })) {
    return "type WMA_Command::bbt_bitmap expected";
  }
  if (!whole) return "item exceeds its bit_box";
  host::Bytes group;
  for (const std::uint32_t field : {0u, 1u, 0u}) host::PutU16(group, field);
  WORD id = groupId;
  for (const Item& item : items) {
    ++id;
    host::Bytes icon;
    if (!ExpectIcon(item.value, false, icon).empty()) continue;
    group.insert(group.end(), {icon[4], item.value[22], std::byte{0}, std::byte{0}});  // width and height
    for (const std::size_t field : {12u, 14u}) host::PutU16(group, host::GetU16(icon, field));
    host::PutU32(group, static_cast<std::uint32_t>(icon.size()));
    host::PutU16(group, id);
    taken.icons[id] = std::move(icon);
  }
  if (taken.icons.empty()) return "icon group list is empty";
  group[4] = static_cast<std::byte>(taken.icons.size());
  group[5] = static_cast<std::byte>(taken.icons.size() >> 8);
  taken.icons[groupId] = std::move(group);
  return {};
}

}  // namespace

bool SplitItems(std::span<const std::byte> data, std::vector<Item>& items) {
  while (!data.empty()) {
    if (data.size() < itemHeaderSize) return false;
    const std::uint64_t size = host::GetU32(data, 8);
    if (itemHeaderSize + size > data.size()) return false;
    items.push_back({host::GetU32(data, 4), data.subspan(itemHeaderSize, size)});
    data = data.subspan(itemHeaderSize + size);
  }
  return true;
}

std::string ExpectIcon(std::span<const std::byte> bitmap, bool buildMask, host::Bytes& icon) {
  constexpr std::uint64_t longest = 0xFFFFFFFF;
  if (bitmap.size() < 54) return "Bitmap data is truncated";
  if (host::GetU16(bitmap, 0) != 0x4D42) return "Invalid bmp header";
  if (host::GetU32(bitmap, 14) != 40) return "Invalid bmp info header size";
  if (host::GetU32(bitmap, 46) != 0 || host::GetU32(bitmap, 50) != 0) return "Bitmap palettes not supported";
  if (host::GetU32(bitmap, 30) != 0) return "Only uncompressed RGB bitmaps supported";
  if (host::GetU16(bitmap, 28) != 32) return "Only 32bpp bitmaps supported";
  if (host::GetU16(bitmap, 26) != 1) return "Only single-plane bitmaps supported";
  const std::size_t width = host::GetU32(bitmap, 18), height = host::GetU32(bitmap, 22);
  const auto usable = [](std::size_t side) { return side != 0 && side < 0x80000000; };
  if (!usable(width) || !usable(height)) return "Invalid bmp dimensions";
  const std::size_t row = 4 * width, maskRow = (width + 31) / 32 * 4;
  if (row > longest || 40 + (row + maskRow) * height > longest) return "Invalid bmp dimensions";
  if (bitmap.size() < 54 + row * height) return "Bitmap data is truncated";

  icon.assign(bitmap.begin() + 14, bitmap.begin() + 22);
  host::PutU32(icon, static_cast<std::uint32_t>(2 * height));
  icon.insert(icon.end(), bitmap.begin() + 26,
              bitmap.begin() + static_cast<std::ptrdiff_t>(54 + row * height));
  const std::size_t mask = icon.size();
  icon.resize(mask + maskRow * height);
  for (std::size_t pixel = 0; buildMask && pixel < width * height; ++pixel) {
    std::byte* const color = icon.data() + 40 + 4 * pixel;
    if (color[3] >= std::byte{128}) continue;
    color[0] = color[1] = color[2] = std::byte{0};
    const std::size_t x = pixel % width;
    icon[mask + pixel / width * maskRow + x / 8] |= static_cast<std::byte>(1 << (7 - x % 8));
  }
  return {};
}

host::Bytes RealReply(Kind kind, const host::Catalogue& catalogue, const std::string& argument) {
  host::Bytes question;
  const auto length = static_cast<std::uint32_t>(argument.size() + 1);
  for (const std::uint32_t field :
       {static_cast<std::uint32_t>(kind), 3u, 0u, 0u, length + 28, 0u, 3u, length}) {
    host::PutU32(question, field);
  }
  const auto text = std::as_bytes(std::span(argument.c_str(), length));
  question.insert(question.end(), text.begin(), text.end());
  for (const std::uint32_t field : {1u, 1u, 4u, RoomOf(kind)}) host::PutU32(question, field);
  return host::AnswerCommand(catalogue, question).bytes;
}

Taken Expect(Kind kind, const Misdeed& misdeed, host::Bytes request) {
  const std::uint32_t room = RoomOf(kind);
  if (misdeed.systemError != 0 || misdeed.returned == 0) return {.raised = "ioctl() returned no data"};
  // Behind the reply's bytes, the memory has what is left of the request, and then zeros.
  const std::size_t written = std::min<std::size_t>(misdeed.bytes.size(), headerSize + room);
  request.resize(std::max(request.size(), written));
  std::copy_n(misdeed.bytes.begin(), written, request.begin());
  if (host::GetU32(request, 8) != 0) return {.raised = "command failed"};
  const std::uint32_t size = host::GetU32(request, 16);
  if (size > room) return {.raised = "reply exceeds its buffer"};
  request.resize(headerSize + size);

  std::vector<Item> items;
  const bool whole = SplitItems(std::span(request).subspan(headerSize), items);
  Taken taken;
  taken.raised = kind == Kind::List      ? TakeList(items, whole, taken)
                 : kind == Kind::Details ? TakeDetails(items, whole, taken)
                                         : TakeIcons(items, whole, taken);
  return taken;
}

}  // namespace trials
