// A second reading of replies, as plain as it can be written: item by item, pixel by pixel.
#include "trials/replies.h"

#include <algorithm>

#include "guest/text.h"
#include "host/replies.h"

namespace trials {
namespace {

constexpr const char* tooLong = "item exceeds its bit_box";
constexpr const char* noNul = "string is not terminated";

// Adds the item's text; false when it has no end.
bool AddText(const host::Item& item, Taken::Texts& texts) {
  const auto end = std::ranges::find(item.value, std::byte{0});
  if (end == item.value.end()) return false;
  texts.push_back(host::Widen({reinterpret_cast<const char*>(item.value.data()),
                               static_cast<std::size_t>(end - item.value.begin())}));
  return true;
}

std::string TakeList(const std::vector<host::Item>& items, bool whole, Taken& taken) {
  std::string raised;
  for (const host::Item& item : items) {
    if (item.type != host::textItem) raised = "type WMA_Command::bbt_utf8string expected";
    if (raised.empty() && !AddText(item, taken.texts)) raised = noNul;
    if (!raised.empty()) break;
  }
  if (raised.empty() && !whole) raised = tooLong;
  if (raised.empty() && taken.texts.size() % 2 != 0) raised = "list format error";
  taken.texts.resize(taken.texts.size() / 2 * 2);  // whole pairs only
  return raised;
}

std::string TakeDetails(const std::vector<host::Item>& items, bool whole, Taken& taken) {
  const std::map<std::uint32_t, Taken::Texts*> texts = {{host::textItem, &taken.texts},
                                                        {host::defaultTypeItem, &taken.defaults},
                                                        {host::schemeItem, &taken.schemes}};
  for (const host::Item& item : items) {
    if (texts.contains(item.type) && !AddText(item, *texts.at(item.type))) return noNul;
    if (item.type != host::flagItem) continue;
    if (item.value.size() < 4) return tooLong;
    taken.anyType = host::GetU32(item.value, 0) != 0;
  }
  return whole ? "" : tooLong;
}

std::string TakeIcons(const std::vector<host::Item>& items, bool whole, Taken& taken) {
  if (std::ranges::any_of(items, [](const host::Item& item) { return item.type != host::bitmapItem; })) {
    return "type WMA_Command::bbt_bitmap expected";
  }
  if (!whole) return tooLong;
  std::uint32_t id = 448;
  for (const host::Item& item : items) {
    ++id;
    host::LauncherIcon icon;
    if (!ExpectIcon(item.value, false, icon.image).empty()) continue;
    icon.entry = {icon.image[4], item.value[22], std::byte{0}, std::byte{0}};  // width and height
    for (const std::size_t field : {12u, 14u}) host::PutU16(icon.entry, host::GetU16(icon.image, field));
    host::PutU32(icon.entry, static_cast<std::uint32_t>(icon.image.size()));
    host::PutU16(icon.entry, id);
    taken.icons.push_back(std::move(icon));
  }
  return taken.icons.empty() ? "icon group list is empty" : "";
}

}  // namespace

bool SplitItems(std::span<const std::byte> data, std::vector<host::Item>& items) {
  for (host::Item item; host::TakeItem(data, item);) items.push_back(item);
  return data.empty();
}

std::string TextOf(std::span<const std::byte> bytes) {
  return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
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
  const auto question = host::Items().Text(host::textItem, argument).Number(host::numberItem, RoomOf(kind));
  return host::AnswerCommand(catalogue, host::Envelope(static_cast<std::uint32_t>(kind), question.bytes()))
      .bytes;
}

Taken Expect(Kind kind, const host::Reply& reply, bool fails, host::Bytes request) {
  const std::uint32_t room = RoomOf(kind);
  if (fails || reply.returned == 0) return {.raised = "ioctl() returned no data"};
  // Behind the reply's bytes, the memory has what is left of the request, and then zeros.
  const std::size_t written = std::min<std::size_t>(reply.bytes.size(), host::envelopeHeader + room);
  request.resize(std::max(request.size(), written));
  std::copy_n(reply.bytes.begin(), written, request.begin());
  if (host::GetU32(request, 8) != 0) return {.raised = "command failed"};
  const std::uint32_t size = host::GetU32(request, 16);
  if (size > room) return {.raised = "reply exceeds its buffer"};
  request.resize(host::envelopeHeader + size);

  std::vector<host::Item> items;
  const bool whole = SplitItems(std::span(request).subspan(host::envelopeHeader), items);
  Taken taken;
  const auto take = kind == Kind::List ? TakeList : kind == Kind::Details ? TakeDetails : TakeIcons;
  taken.raised = take(items, whole, taken);
  return taken;
}

}  // namespace trials
