// The table of ways. A host's answer is changed as bytes, so that it can be wrong in what no encoder writes.
#include "trials/misfit_ways.h"

#include <algorithm>
#include <cstring>

namespace trials {
namespace {

using host::Bytes;
using host::Reply;

constexpr std::size_t headerSize = 20;

void Set(Bytes& bytes, std::size_t at, std::uint32_t number, std::size_t size = 4) {
  std::memcpy(bytes.data() + at, &number, size);
}

Bytes Terminated(std::string text) {
  text += '\0';
  return BytesOf(text);
}

// A reply of these items alone.
Way::Bend Items(std::vector<std::pair<std::uint32_t, Bytes>> values) {
  return [values = std::move(values)](Reply& reply) {
    std::vector<Item> items;
    for (const auto& [type, value] : values) items.push_back({type, value});
    reply.bytes = EnvelopeOf(items);
  };
}

// The good reply with its bytes cut, at the end or to a size, the envelope's size as it was or corrected.
Way::Bend Cut(std::size_t size, bool corrected) {
  return [=](Reply& reply) {
    reply.bytes.resize(std::min(size, reply.bytes.size()));
    if (corrected) Set(reply.bytes, 16, static_cast<std::uint32_t>(reply.bytes.size() - headerSize));
  };
}

Way::Bend Field(std::size_t at, std::uint32_t number, std::size_t size = 4) {
  return [=](Reply& reply) { Set(reply.bytes, at, number, size); };
}

// What can be wrong with a reply of either kind.
std::vector<std::pair<std::string, Way::Bend>> WrongReplies(Kind kind) {
  std::vector<std::pair<std::string, Way::Bend>> wrong = {
      {"result 1", Field(8, 1)},
      {"result 0xFFFFFFFF", Field(8, 0xFFFFFFFF)},
      {"data size over the room", Field(16, RoomOf(kind) + 1)},
      {"data size 0xFFFFFFFF", Field(16, 0xFFFFFFFF)},
      {"data size of the whole room", Field(16, RoomOf(kind))},
      {"no data", Cut(headerSize, true)},
      {"no bytes at all", Cut(0, false)},
      {"half an envelope", Cut(10, false)},
      {"half an item header", Cut(headerSize + 6, true)},
      {"half a value", Cut(headerSize + 14, true)},
      {"half a value, unsaid", Cut(headerSize + 14, false)},
      {"first item's size 0xFFFFFFFF", Field(headerSize + 8, 0xFFFFFFFF)},
      {"first item's size 0xFFFFFFF4", Field(headerSize + 8, 0xFFFFFFF4)},
      {"first item's size 0", Field(headerSize + 8, 0)},
      {"first item's type unknown", Field(headerSize + 4, 0x1000)},
      {"nothing returned", [](Reply& reply) { reply.returned = 0; }},
      {"a failure as the request's status", [](Reply& reply) { reply.status = 0xF0000000; }},
      {"an older version in the envelope", Field(4, 2)},
      {"a byte too many",
       [](Reply& reply) {
         reply.bytes.push_back(std::byte{7});
         Set(reply.bytes, 16, static_cast<std::uint32_t>(reply.bytes.size() - headerSize));
       }},
      {"more bytes than the request has room for",
       [kind](Reply& reply) { reply.bytes.resize(headerSize + RoomOf(kind) + 4096, std::byte{0xAA}); }},
  };
  return wrong;
}

std::vector<std::pair<std::string, Way::Bend>> WrongDetails() {
  const std::string many(300, 'm'), most(32000, 'm');
  std::vector<std::pair<std::uint32_t, Bytes>> crowd(2000, {3, Terminated("misfit")});
  std::vector<std::pair<std::string, Way::Bend>> wrong = {
      {"a type without its NUL", Items({{3, BytesOf("misfit")}})},
      {"a default type without its NUL", Items({{5, BytesOf("misfit")}})},
      {"a scheme without its NUL", Items({{6, BytesOf("misfit")}})},
      {"a scheme without its NUL behind good ones", Items({{3, Terminated("misfit")}, {6, BytesOf("x")}})},
      {"a flag of three bytes", Items({{4, Bytes(3)}})},
      {"no type but for any", Items({{4, Bytes(4, std::byte{1})}})},
      {"two thousand types", Items(crowd)},
      {"ill-formed UTF-8", Items({{3, Terminated("misfit\xFF\xC0\xED\xA0\x80")}})},
  };
  // A text that is one of each kind.
  for (const std::string& text :
       {std::string(), std::string(1, '\0'), std::string("\\"), std::string("misfit\\..\\doc105"),
        std::string("doc105\\OpenWithList\\App 105 (Mac).exe"), std::string("..\\.doc105"), std::string("."),
        std::string(".doc105"), std::string("misfit\n"), std::string("EXE"), std::string("OWN105_auto_file"),
        std::string("Tsrn.Url.App 105 (Mac)"), std::string("Applications"), std::string("x-app105"),
        "misfit" + many, "misfit" + most}) {
    for (const std::uint32_t type : {3u, 5u, 6u}) {
      wrong.emplace_back("type " + std::to_string(type) + " \"" + text.substr(0, 40) + "\"",
                         Items({{3, Terminated("misfit")}, {type, Terminated(text)}}));
    }
  }
  return wrong;
}

std::vector<std::pair<std::string, Way::Bend>> WrongIcons() {
  std::vector<std::pair<std::string, Way::Bend>> wrong = {
      {"a text among the icons", Items({{2, SmallBitmap()}, {3, Terminated("misfit")}})},
      {"an icon of no bytes", Items({{2, {}}})},
      {"twenty thousand icons of no bytes", Items({20000, {2, {}}})},
      {"a header of 53 bytes", Items({{2, Bytes(53)}})},
  };
  struct Header {
    const char* name;
    std::size_t at, size;
    std::vector<std::uint32_t> values;
  };
  const Header fields[] = {{"magic", 0, 2, {0, 0x424D}},
                           {"header size", 14, 4, {0, 12, 124}},
                           {"width", 18, 4, {0, 17, 0x7FFFFFFF, 0xFFFFFFFF, 0x80000000}},
                           {"height", 22, 4, {0, 17, 0x7FFFFFFF, 0xFFFFFFF0, 0x80000000}},
                           {"planes", 26, 2, {0, 2, 0xFFFF}},
                           {"bits", 28, 2, {0, 1, 24, 64}},
                           {"compression", 30, 4, {1, 3}},
                           {"palette", 46, 4, {1}},
                           {"important colours", 50, 4, {1}}};
  for (const Header& field : fields) {
    for (const std::uint32_t value : field.values) {
      Bytes bitmap = SmallBitmap();
      Set(bitmap, field.at, value, field.size);
      wrong.emplace_back(std::string("a bitmap's ") + field.name + " " + std::to_string(value),
                         Items({{2, std::move(bitmap)}}));
    }
  }
  return wrong;
}

// Names that no file can have, or that are odd; and identifiers.
void AddEntries(std::vector<Way>& ways) {
  for (const char* name : {"Misfit\\",
                           "Misfit/",
                           "Misfit\\inner",
                           "..\\Misfit",
                           "..\\..\\..\\..\\..\\..\\..\\Misfit",
                           "C:\\Misfit",
                           "\\\\.\\Misfit",
                           "Misfit:stream",
                           "Misfit*",
                           "Misfit?",
                           "Misfit\"",
                           "Misfit<",
                           "Misfit>",
                           "Misfit|",
                           "Misfit\x01",
                           "Misfit\n",
                           "Misfit ",
                           "Misfit.",
                           " Misfit",
                           "Misfit (Mac)",
                           "Misfit (Mac).exe",
                           "Misfit\xFF",
                           "Misfit\xED\xA0\x80",
                           "%APPDATA%Misfit"}) {
    ways.push_back({.what = std::string("the name ") + name, .name = Terminated(name), .unnamed = true});
  }
  for (const std::size_t length : {200u, 250u, 256u, 300u, 1000u, 20000u}) {
    ways.push_back({.what = "a name of " + std::to_string(length) + " letters",
                    .name = Terminated("Misfit" + std::string(length - 6, 'm')),
                    .unnamed = true});
  }
  ways.push_back({.what = "a NUL inside the name", .name = Terminated(std::string("Misfit\0tail", 11))});
  ways.push_back({.what = "an empty identifier", .id = Terminated("")});
  ways.push_back(
      {.what = "an identifier of 20,000 letters", .id = Terminated("misfit" + std::string(20000, 'i'))});
  ways.push_back({.what = "an ill-formed identifier", .id = Terminated("misfit\xFF"), .unnamed = true});
}

}  // namespace

std::vector<Way> AllWays() {
  std::vector<Way> ways = {{.what = "nothing"},
                           {.what = "a failing request for icons", .failing = Kind::Icons},
                           {.what = "a failing request for details", .failing = Kind::Details}};
  for (const Kind kind : {Kind::Icons, Kind::Details}) {
    auto wrong = WrongReplies(kind);
    std::ranges::move(kind == Kind::Icons ? WrongIcons() : WrongDetails(), std::back_inserter(wrong));
    for (auto& [what, bend] : wrong) {
      Way way{.what = (kind == Kind::Icons ? "icons: " : "details: ") + what};
      (kind == Kind::Icons ? way.icons : way.details) = std::move(bend);
      ways.push_back(std::move(way));
    }
  }
  AddEntries(ways);
  return ways;
}

Bytes SmallBitmap() {
  constexpr std::uint32_t side = 16, pixels = 4 * side * side;
  Bytes bitmap;
  host::PutU16(bitmap, 0x4D42);
  for (const std::uint32_t field :
       {54 + pixels, 0u, 54u, 40u, side, side, 0x200001u, 0u, pixels, 0u, 0u, 0u, 0u}) {
    host::PutU32(bitmap, field);
  }
  for (std::uint32_t i = 0; i < pixels / 4; ++i) host::PutU32(bitmap, i * 2654435761u);
  return bitmap;
}

std::vector<Item> GoodIcons() {
  static const Bytes bitmap = SmallBitmap();
  return {{2, bitmap}};
}

std::vector<Item> GoodDetails() {
  static const Bytes text = Terminated("misfit");
  return {{3, text}, {5, text}, {6, text}};
}

Bytes EnvelopeOf(const std::vector<Item>& items) {
  Bytes envelope;
  for (const std::uint32_t field : {0u, 3u, 0u, 0u, 0u}) host::PutU32(envelope, field);
  for (const Item& item : items) {
    for (const auto field : {0u, item.type, static_cast<std::uint32_t>(item.value.size())}) {
      host::PutU32(envelope, field);
    }
    envelope.insert(envelope.end(), item.value.begin(), item.value.end());
  }
  Set(envelope, 16, static_cast<std::uint32_t>(envelope.size() - headerSize));
  return envelope;
}

std::string Text(const Bytes& value) {
  const auto end = std::ranges::find(value, std::byte{0});
  return {reinterpret_cast<const char*>(value.data()), static_cast<std::size_t>(end - value.begin())};
}

}  // namespace trials
