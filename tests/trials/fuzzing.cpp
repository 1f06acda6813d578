// The guest folder, and the mutation of items: plain byte mutations mostly break the sizes, and then show
// only that a broken size is refused.
#include "trials/fuzzing.h"

#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <random>
#include <span>
#include <vector>

#include "host/wire.h"
#include "trials/expectations.h"

namespace fuzz {
namespace {

using host::Bytes;

const std::filesystem::path& OwnFolder() {
  static const auto folder =
      std::filesystem::temp_directory_path() / ("velomira-fuzz-" + std::to_string(getpid()));
  return folder;
}

Bytes WithHeader(std::uint32_t type, std::span<const std::byte> value) {
  Bytes item;
  for (const auto field : {0u, type, static_cast<std::uint32_t>(value.size())}) host::PutU32(item, field);
  item.insert(item.end(), value.begin(), value.end());
  return item;
}

Bytes MutatedValue(const Bytes& item, std::uint32_t type, std::size_t room) {
  Bytes value(item.begin() + 12, item.end());
  value.resize(std::max(room, value.size()));
  const std::size_t size =
      LLVMFuzzerMutate(reinterpret_cast<std::uint8_t*>(value.data()), item.size() - 12, value.size());
  return WithHeader(type, std::span(value).first(size));
}

}  // namespace

std::filesystem::path GuestFolder() {
  std::filesystem::create_directories(OwnFolder());
  std::atexit([] { std::filesystem::remove_all(OwnFolder()); });
  return OwnFolder();
}

std::size_t MutateItems(std::uint8_t* data, std::size_t size, std::size_t maxSize, std::size_t prefix,
                        unsigned seed) {
  std::minstd_rand random(seed);
  const auto below = [&](std::size_t limit) { return random() % limit; };
  if (size < prefix || below(8) == 0) return LLVMFuzzerMutate(data, size, maxSize);
  if (prefix > 0 && below(8) == 0) LLVMFuzzerMutate(data, prefix, prefix);  // may shrink it: its end stays

  std::vector<trials::Item> views;
  trials::SplitItems(std::as_bytes(std::span(data, size)).subspan(prefix), views);
  std::vector<Bytes> items(views.size());
  std::ranges::transform(views, items.begin(),
                         [](const trials::Item& view) { return WithHeader(view.type, view.value); });
  const std::size_t at = items.empty() ? 0 : below(items.size());
  const auto place = items.begin() + static_cast<std::ptrdiff_t>(at);
  const auto types = static_cast<std::uint32_t>(below(8));
  switch (items.empty() ? 0 : below(7)) {
    case 0:
      items.insert(place, WithHeader(types, std::as_bytes(std::span("a\0\0", 4)).first(below(5))));
      break;
    case 1:
      items.insert(place, Bytes(*place));
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
      (*place)[4] = static_cast<std::byte>(types);
      break;
    default:
      *place = MutatedValue(*place, host::GetU32(*place, 4), place->size() + 16);
  }
  std::size_t end = prefix;
  for (const Bytes& item : items) {
    const std::size_t length = std::min(item.size(), maxSize - end);
    std::memcpy(data + end, item.data(), length);
    end += length;
  }
  return end;
}

}  // namespace fuzz
