// The guest folder, and the mutation of items: plain byte mutations mostly break the sizes, and then show
// only that a broken size is refused.
#include "fuzz/fuzzing.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <random>

#include "trials/replies.h"

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

  std::vector<trials::Item> views;
  trials::SplitItems(std::as_bytes(std::span(data, size)).subspan(prefix), views);
  std::vector<host::Bytes> items;
  for (const trials::Item& view : views) items.push_back(host::Items().Add(view.type, view.value).bytes());
  const auto type = static_cast<std::uint32_t>(below(8));
  const auto value = std::as_bytes(std::span("a\0\0", 4)).first(below(5));
  if (items.empty()) items.push_back(host::Items().Add(type, value).bytes());
  const std::size_t at = below(items.size());
  const auto place = items.begin() + static_cast<std::ptrdiff_t>(at);
  switch (below(7)) {
    case 0:
      items.insert(place, host::Items().Add(type, value).bytes());
      break;
    case 1:
      items.insert(place, host::Bytes(*place));
      break;
    case 2:
      items.erase(place);
      break;
    case 3:
      std::swap(*place, items[below(items.size())]);
      break;
    case 4:  // a header that lies about its type or its size
      (*place)[below(2) == 0 ? 4 : 8 + below(4)] = static_cast<std::byte>(below(256));
      break;
    case 5:
      (*place)[4] = static_cast<std::byte>(type);
      break;
    default: {
      const std::uint32_t kept = host::GetU32(*place, 4);
      host::Bytes longer(place->begin() + host::itemHeader, place->end());
      const std::size_t old = longer.size();
      longer.resize(old + 28);
      longer.resize(LLVMFuzzerMutate(reinterpret_cast<std::uint8_t*>(longer.data()), old, longer.size()));
      *place = host::Items().Add(kept, longer).bytes();
    }
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
