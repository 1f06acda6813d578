// The composer without memory. A plain process has its address space limited for the moment; a sanitizer,
// which needs its space whole, refuses blocks of this size itself.
#include <gtest/gtest.h>
#include <sys/resource.h>

#include "support/raised.h"
#include "xdt/bit_box/bit_box.h"

// NOLINTBEGIN(bugprone-reserved-identifier): the names that the sanitizers look for, before they are set up
extern "C" [[gnu::no_sanitize("thread")]] const char* __asan_default_options() {
  return "allocator_may_return_null=1:max_allocation_size_mb=2048";
}
extern "C" [[gnu::no_sanitize("thread")]] const char* __tsan_default_options() {
  return __asan_default_options();
}
// NOLINTEND(bugprone-reserved-identifier)

TEST(BitBoxMemory, AFailedReallocationKeepsWhatWasWritten) {
  xdt::bit_box::composer composer;
  composer.append_string("*");
  rlimit before;
  getrlimit(RLIMIT_AS, &before);
  const rlimit little{*VELOMIRA_SANITIZE != 0 ? before.rlim_cur : rlim_t{3} << 30, before.rlim_max};
  setrlimit(RLIMIT_AS, &little);
  EXPECT_EQ(Raised([&] { composer.append(2, "", 0xF0000000); }), "bit_box: BAD_REALLOC");
  setrlimit(RLIMIT_AS, &before);
  EXPECT_EQ(composer.size(), 14u);
  EXPECT_EQ(composer.capacity(), 14u);
  composer.append_uint32(7);
  const std::byte index = composer.data()[14];
  EXPECT_EQ(index, std::byte{1});  // the item that failed took no number
  auto item = xdt::bit_box(composer.data(), composer.size()).begin();
  EXPECT_EQ(item.string(), "*");
  EXPECT_EQ((++item).number(), 7u);
}
