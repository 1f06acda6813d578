// The guest folder, and the mutation of items: plain byte mutations mostly break the sizes, and then show
// only that a broken size is refused.
#include "fuzz/fuzzing.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <random>

#include "host/wire.h"

namespace fuzz {

void Check(bool holds, const std::string& what) {
  if (holds) return;
  std::fprintf(stderr, "property broken: %s\n", what.c_str());
  std::abort();
}

std::filesystem::path GuestFolder() {
  static const auto folder =
      std::filesystem::temp_directory_path() / ("velomira-fuzz-" + std::to_string(getpid()));
  std::filesystem::create_directories(folder);
  std::atexit([] { std::filesystem::remove_all(folder); });
  return folder;
}

std::size_t MutateItems(std::uint8_t* data, std::size_t size, std::size_t maxSize, std::size_t prefix,
                        unsigned seed) {
  std::minstd_rand random(seed);
  const auto below = [&](std::size_t limit) { return random() % limit; };
  if (size < prefix || below(8) == 0) return LLVMFuzzerMutate(data, size, maxSize);
  if (prefix > 0 && below(8) == 0) LLVMFuzzerMutate(data, prefix, prefix);  // may shrink it: its end stays

  auto left = std::as_bytes(std::span(data, size)).subspan(prefix);
  std::vector<host::Bytes> items;
  for (host::Item item; host::TakeItem(left, item);)
    items.push_back(host::Items().Add(item.type, item.value).bytes());
  const auto type = static_cast<std::uint32_t>(below(8));
  const auto place = items.begin() + static_cast<std::ptrdiff_t>(below(items.size() + 1));
  if (place == items.end() || below(4) == 0) {
    items.insert(place,
                 host::Items().Add(type, std::as_bytes(std::span("a\0\0", 4)).first(below(5))).bytes());
  } else if (below(4) == 0) {
    items.push_back(*place);
  } else if (below(3) == 0) {
    items.erase(place);
  } else if (below(4) == 0) {  // a header that lies about its size
    (*place)[8 + below(4)] = static_cast<std::byte>(below(256));
  } else {
    host::Bytes value(place->begin() + host::itemHeader, place->end());
    const std::size_t old = value.size();
    value.resize(old + 28);
    value.resize(LLVMFuzzerMutate(reinterpret_cast<std::uint8_t*>(value.data()), old, value.size()));
    *place = host::Items().Add(below(4) == 0 ? type : host::GetU32(*place, 4), value).bytes();
  }
  auto out = std::as_writable_bytes(std::span(data, maxSize)).subspan(prefix);
  for (const host::Bytes& item : items) {
    const auto part = std::span(item).first(std::min(item.size(), out.size()));
    std::ranges::copy(part, out.begin());
    out = out.subspan(part.size());
  }
  return maxSize - out.size();
}

}  // namespace fuzz
