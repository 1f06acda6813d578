// The reader of item containers, over bytes whose ends the sanitizer watches, and the composer.
#include "xdt/bit_box/bit_box.h"

#include <algorithm>

#include "fuzz/fuzzing.h"
#include "trials/replies.h"

using fuzz::Check;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const auto bytes = std::as_bytes(std::span(data, size));
  std::vector<trials::Item> items;
  const bool whole = trials::SplitItems(bytes, items);

  xdt::bit_box::composer composer;
  auto expected = items.begin();
  try {
    const xdt::bit_box box(bytes.data(), static_cast<std::uint32_t>(size));
    for (auto item = box.begin(); !item.at_end(); ++item) {
      Check(expected != items.end(), "an item too many");
      const trials::Item& wanted = *expected++;
      Check(item.type() == wanted.type && item.value() == wanted.value.data() &&
                item.size() == wanted.value.size(),
            "not the item that lies there");
      composer.append(item.type(), item.value(), item.size());
      try {
        const std::string_view text = item.string();
        Check(reinterpret_cast<const std::byte*>(text.data()) == item.value() && text.size() < item.size() &&
                  item.value()[text.size()] == std::byte{0},
              "a text outside its item");
      } catch (const xdt::exc_tag&) {
        Check(std::ranges::find(wanted.value, std::byte{0}) == wanted.value.end(), "a text not read");
      }
    }
    Check(whole, "the misfit is not refused");
  } catch (const xdt::exc_tag&) {
    Check(!whole, "refused without a misfit");
  }
  Check(expected == items.end(), "items left out");

  std::vector<trials::Item> again;
  Check(composer.size() <= composer.capacity() &&
            trials::SplitItems({composer.data(), composer.size()}, again) && again.size() == items.size(),
        "composed otherwise than read");
  for (std::size_t i = 0; i < again.size(); ++i) {
    Check(again[i].type == items[i].type && std::ranges::equal(again[i].value, items[i].value),
          "an item composed otherwise than read");
  }
  return 0;
}

extern "C" std::size_t LLVMFuzzerCustomMutator(std::uint8_t* data, std::size_t size, std::size_t maxSize,
                                               unsigned int seed) {
  return fuzz::MutateItems(data, size, maxSize, 0, seed);
}
