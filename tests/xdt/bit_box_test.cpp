// The tagged container: exact bytes when writing, and no byte past the end when reading. Boxes to be read lie
// in memory of exactly their size, so that a sanitizer sees a step too far.
#include "xdt/bit_box/bit_box.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <vector>

#include "support/raised.h"

namespace {

std::vector<int> BytesOf(const xdt::bit_box::composer& composer) {
  std::vector<int> bytes;
  for (std::uint32_t i = 0; i < composer.size(); ++i)
    bytes.push_back(std::to_integer<int>(composer.data()[i]));
  return bytes;
}

struct Box {
  explicit Box(std::initializer_list<int> bytes)
      : size(static_cast<std::uint32_t>(bytes.size())), memory(std::make_unique<std::byte[]>(bytes.size())) {
    std::transform(bytes.begin(), bytes.end(), memory.get(),
                   [](int byte) { return static_cast<std::byte>(byte); });
  }
  xdt::bit_box::const_iterator begin() const { return xdt::bit_box(memory.get(), size).begin(); }

  std::uint32_t size;
  std::unique_ptr<std::byte[]> memory;
};

}  // namespace

TEST(BitBoxComposer, WritesItemsAndGrowsByTheItemAndTwiceWhatItHad) {
  xdt::bit_box::composer composer;
  EXPECT_EQ(composer.data(), nullptr);
  EXPECT_EQ(composer.size(), 0u);
  composer.append_string("*");
  EXPECT_EQ(composer.capacity(), 14u);
  composer.append_uint32(32748);
  EXPECT_EQ(composer.capacity(), 44u);
  EXPECT_EQ(BytesOf(composer), (std::vector<int>{0, 0, 0, 0, 3, 0, 0, 0, 2, 0, 0, 0, '*',  0,  //
                                                 1, 0, 0, 0, 1, 0, 0, 0, 4, 0, 0, 0, 0xEC, 0x7F, 0, 0}));
  // 14 bytes are left: an item that fills them leaves the buffer as it is.
  composer.append(6, "ab", 2);
  EXPECT_EQ(composer.capacity(), 44u);
  EXPECT_EQ(composer.size(), 44u);
  composer.append(2, nullptr, 0);
  EXPECT_EQ(composer.capacity(), 12u + 2 * 44);
  composer.append_string("");
  const std::vector<int> bytes = BytesOf(composer);
  EXPECT_EQ(std::vector(bytes.begin() + 30, bytes.end()),
            (std::vector<int>{2, 0, 0, 0, 6, 0, 0, 0, 2, 0, 0, 0, 'a', 'b',  //
                              3, 0, 0, 0, 2, 0, 0, 0, 0, 0, 0, 0,            //
                              4, 0, 0, 0, 3, 0, 0, 0, 1, 0, 0, 0, 0}));
}

TEST(BitBoxComposer, AnItemLargerThanItsSizeCanSayIsRefusedBeforeItsValueIsRead) {
  xdt::bit_box::composer composer;
  composer.append_string("*");
  for (const std::uint32_t size : {0xFFFFFFF4u, 0xFFFFFFFFu}) {
    EXPECT_EQ(Raised([&] { composer.append(2, "", size); }), "bit_box: BAD_REALLOC") << size;
  }
  EXPECT_EQ(composer.size(), 14u);
}

TEST(BitBox, AnItemMustLieInsideItsBox) {
  const std::string exceeds = "bit_box: item exceeds its bit_box";
  for (const Box& box : {Box({1}), Box({0, 0, 0, 0, 3, 0, 0, 0, 0, 0, 0}),  // less than a header
                         Box({0, 0, 0, 0, 3, 0, 0, 0, 1, 0, 0, 0}),  // a value of one byte that is not there
                         Box({0, 0, 0, 0, 3, 0, 0, 0, 0xFF, 0xFF, 0xFF, 0xFF, 0}),  // sizes that wrap around
                         Box({0, 0, 0, 0, 3, 0, 0, 0, 0xF4, 0xFF, 0xFF, 0xFF, 0})}) {
    EXPECT_EQ(Raised([&] { box.begin(); }), exceeds) << "box of " << box.size;
  }
  const Box second({0, 0, 0, 0, 3, 0, 0, 0, 1, 0, 0, 0, 0, /**/ 1, 0, 0, 0, 3, 0, 0, 0, 2, 0, 0, 0, 0});
  auto item = second.begin();
  EXPECT_EQ(item.string(), "");
  EXPECT_EQ(Raised([&] { ++item; }), exceeds);
}

TEST(BitBox, StringsEndAtTheirFirstNulAndNumbersHaveFourBytes) {
  EXPECT_EQ(Box({0, 0, 0, 0, 3, 0, 0, 0, 4, 0, 0, 0, 'a', 0, 'b', 0}).begin().string(), "a");
  for (const Box& box :
       {Box({0, 0, 0, 0, 3, 0, 0, 0, 0, 0, 0, 0}), Box({0, 0, 0, 0, 3, 0, 0, 0, 2, 0, 0, 0, 'a', 'b'}),
        // The NUL behind belongs to the next item.
        Box({0, 0, 0, 0, 3, 0, 0, 0, 1, 0, 0, 0, 'a', 0, 0, 0, 0, 3, 0, 0, 0, 0, 0, 0, 0})}) {
    EXPECT_EQ(Raised([&] { static_cast<void>(box.begin().string()); }), "bit_box: string is not terminated");
  }
  EXPECT_EQ(Box({0, 0, 0, 0, 4, 0, 0, 0, 5, 0, 0, 0, 1, 2, 3, 4, 5}).begin().number(), 0x04030201u);
  EXPECT_EQ(Raised([] {
              Box({0, 0, 0, 0, 4, 0, 0, 0, 3, 0, 0, 0, 1, 2, 3}).begin().number();
            }),
            "bit_box: item exceeds its bit_box");
}
