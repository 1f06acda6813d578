// The composer without memory. Plainly the process' address space is limited for the moment; a sanitizer
// needs its space whole, so there it is the sanitizer that refuses blocks of this size.
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <cstring>

#include "support/raised.h"
#include "xdt/bit_box/bit_box.h"

#ifdef __has_feature
#define SANITIZED_BY(name) __has_feature(name)
#else
#define SANITIZED_BY(name) 0
#endif

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__) || SANITIZED_BY(address_sanitizer) || \
    SANITIZED_BY(thread_sanitizer)
// NOLINTBEGIN(bugprone-reserved-identifier): the names that the sanitizers look for
extern "C" const char* __asan_default_options() {
  return "allocator_may_return_null=1:max_allocation_size_mb=2048";
}
extern "C" const char* __tsan_default_options() {
  return "allocator_may_return_null=1:max_allocation_size_mb=2048";
}
// NOLINTEND(bugprone-reserved-identifier)
namespace {
struct LittleMemory {};
}  // namespace
#else
namespace {
class LittleMemory {
 public:
  LittleMemory() {
    getrlimit(RLIMIT_AS, &before_);
    const rlimit little{rlim_t{3} << 30, before_.rlim_max};
    setrlimit(RLIMIT_AS, &little);
  }
  ~LittleMemory() { setrlimit(RLIMIT_AS, &before_); }
  LittleMemory(const LittleMemory&) = delete;
  LittleMemory& operator=(const LittleMemory&) = delete;

 private:
  rlimit before_;
};
}  // namespace
#endif

TEST(BitBoxMemory, AFailedReallocationKeepsWhatWasWritten) {
  xdt::bit_box::composer composer;
  composer.append_string("*");
  const char value = 0;
  {
    [[maybe_unused]] const LittleMemory little;
    EXPECT_EQ(Raised([&] { composer.append(2, &value, 0xF0000000); }), "bit_box: BAD_REALLOC");
  }
  EXPECT_EQ(composer.size(), 14u);
  EXPECT_EQ(composer.capacity(), 14u);
  composer.append_uint32(7);
  EXPECT_EQ(composer.capacity(), 44u);
  auto item = xdt::bit_box(composer.data(), composer.size()).begin();
  EXPECT_EQ(item.string(), "*");
  EXPECT_EQ((++item).number(), 7u);
  std::uint32_t index = 0;
  std::memcpy(&index, composer.data() + 14, sizeof index);
  EXPECT_EQ(index, 1u);  // the item that failed took no number
}
