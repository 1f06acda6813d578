// The tagged container: exact bytes when writing, and no byte past the end when reading. Boxes to be read lie
// in memory of exactly their size, so that a sanitizer sees a step too far.
#include "xdt/bit_box/bit_box.h"

#include <gtest/gtest.h>

#include <memory>

#include "support/raised.h"

namespace {

using namespace std::string_view_literals;

// The header of an item, 0 to 255 each; `size` has four bytes.
std::string Item(char index, char type, std::string_view size, std::string_view value) {
  return std::string{index, 0, 0, 0, type, 0, 0, 0}.append(size).append(value);
}

std::string BytesOf(const xdt::bit_box::composer& composer) {
  return {reinterpret_cast<const char*>(composer.data()), composer.size()};
}

// Reads the box: each item's text or, where there is none of that type, number; or what is raised.
std::string Read(std::string_view bytes) {
  const auto memory = std::make_unique<std::byte[]>(bytes.size());
  std::memcpy(memory.get(), bytes.data(), bytes.size());
  std::string read;
  const std::string raised = Raised([&] {
    auto item = xdt::bit_box(memory.get(), static_cast<std::uint32_t>(bytes.size())).begin();
    for (; !item.at_end(); ++item) {
      read += item.type() == 3 ? std::string(item.string()) : std::to_string(item.number());
      read += ';';
    }
  });
  return read + raised;
}

}  // namespace

TEST(BitBox, IsWrittenItemByItemAndGrowsByTheItemAndTwiceWhatItHad) {
  xdt::bit_box::composer composer;
  EXPECT_EQ(composer.data(), nullptr);
  composer.append_string("*");
  EXPECT_EQ(composer.capacity(), 14u);
  composer.append_uint32(32748);
  EXPECT_EQ(composer.capacity(), 44u);
  composer.append(6, "ab", 2);  // fills what is left
  EXPECT_EQ(composer.capacity(), 44u);
  composer.append(2, nullptr, 0);
  EXPECT_EQ(composer.capacity(), 12u + 2 * 44);
  composer.append_string("");
  composer.append(6, "x", 1);
  EXPECT_EQ(BytesOf(composer), Item(0, 3, "\2\0\0\0"sv, "*\0"sv) +
                                   Item(1, 1, "\4\0\0\0"sv, "\xEC\x7F\0\0"sv) +
                                   Item(2, 6, "\2\0\0\0"sv, "ab") + Item(3, 2, "\0\0\0\0"sv, "") +
                                   Item(4, 3, "\1\0\0\0"sv, "\0"sv) + Item(5, 6, "\1\0\0\0"sv, "x"));
  const std::string before = BytesOf(composer);
  for (const std::uint32_t size : {0xFFFFFFF4u, 0xFFFFFFFFu}) {  // more than the format can count
    EXPECT_EQ(Raised([&] { composer.append(2, "", size); }), "bit_box: BAD_REALLOC") << size;
  }
  EXPECT_EQ(BytesOf(composer), before);
}

TEST(BitBox, IsReadWithinItsBounds) {
  const std::string exceeds = "bit_box: item exceeds its bit_box";
  const std::string unterminated = "bit_box: string is not terminated";
  const std::string text = Item(0, 3, "\2\0\0\0"sv, "a\0"sv), empty = Item(0, 3, "\1\0\0\0"sv, "\0"sv);
  const std::pair<std::string, std::string> cases[] = {
      {"", ""},
      {text + empty + text, "a;;a;"},
      {Item(0, 3, "\4\0\0\0"sv, "a\0b\0"sv), "a;"},
      {Item(0, 4, "\5\0\0\0"sv, "\1\2\3\4\5"), "67305985;"},
      {Item(0, 4, "\3\0\0\0"sv, "\1\2\3"), exceeds},
      {Item(0, 3, "\0\0\0\0"sv, ""), unterminated},
      {Item(0, 3, "\2\0\0\0"sv, "ab"), unterminated},
      {Item(0, 3, "\1\0\0\0"sv, "a") + empty, unterminated},  // the NUL behind belongs to the next item
      {"\1", exceeds},
      {text + empty.substr(0, 11), "a;" + exceeds},
      {text + Item(0, 3, "\1\0\0\0"sv, ""), "a;" + exceeds},
      {text + Item(0, 3, "\2\0\0\0"sv, "\0"sv), "a;" + exceeds},
      {text + Item(0, 3, "\xFF\xFF\xFF\xFF"sv, "\0"sv), "a;" + exceeds},  // sizes that wrap around
      {text + Item(0, 3, "\xF4\xFF\xFF\xFF"sv, "\0"sv), "a;" + exceeds}};
  for (const auto& [bytes, read] : cases) EXPECT_EQ(Read(bytes), read) << ::testing::PrintToString(bytes);
}
