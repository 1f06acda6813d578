// One kind of reply through the whole exchange; KIND names it. An input is a byte that says how the control
// call ends, and the reply.
#include <cstring>

#include "fuzz/fuzzing.h"
#include "trials/exchanges.h"

namespace {

constexpr trials::Kind kind = trials::Kind::KIND;
constexpr std::size_t envelopeStart = 1, itemsStart = 21;

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static auto& exchanges = *new trials::Exchanges(fuzz::GuestFolder());
  if (size == 0) return 0;
  const auto reply = std::as_bytes(std::span(data, size)).subspan(envelopeStart);
  const std::string wrong =
      exchanges.Try(kind, {.bytes = {reply.begin(), reply.end()}, .returned = data[0] == 1 ? 0u : 48u},
                    data[0] == 2 ? ERROR_NOT_READY : 0u);
  fuzz::Check(wrong.empty(), wrong);
  return 0;
}

extern "C" std::size_t LLVMFuzzerCustomMutator(std::uint8_t* data, std::size_t size, std::size_t maxSize,
                                               unsigned int seed) {
  size = fuzz::MutateItems(data, size, maxSize, itemsStart, seed);
  if (size >= itemsStart && seed % 16 != 0) {  // the data size fits mostly
    const auto dataSize = static_cast<std::uint32_t>(size - itemsStart);
    std::memcpy(data + itemsStart - sizeof dataSize, &dataSize, sizeof dataSize);
  }
  return size;
}
