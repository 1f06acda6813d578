// The text form of the native registry.
#include <platform/control.h>
#include <shlwapi.h>

#include <algorithm>
#include <cstring>
#include <iterator>

#include "support/module_fixture.h"

namespace {

class RegistryNativeTest : public GuestTest {};

// Every 16-bit unit but the separator and NUL in names, every one in text, and data that is no proper text.
TEST_F(RegistryNativeTest, LoadingWhatWasSavedChangesNothing) {
  const auto visit = [](auto read) {
    for (unsigned first = 1; first < 0x10000; first += 100) {
      std::u16string text, name(1, u'x');
      for (unsigned unit = first; unit < first + 100; ++unit) text += static_cast<char16_t>(0x10000 - unit);
      std::ranges::copy_if(text, std::back_inserter(name),
                           [](char16_t unit) { return unit != u'\\' && unit; });
      read(name.c_str(), REG_SZ, text.c_str(), 202u);
    }
    const char16_t odd[] = {0xD800, 0, 0xDC00, 0xD83D, 0xDE00, '\\', 'x', '"', 0};
    for (const DWORD type : {REG_SZ, REG_BINARY, 0xFFFFFFFFu}) {
      for (DWORD size = 0; size <= sizeof odd; ++size) {
        const char16_t name[] = {static_cast<char16_t>('a' + type % 16), static_cast<char16_t>('A' + size),
                                 0};
        read(name, type, odd, size);
      }
    }
  };
  visit([](LPCWSTR name, DWORD type, const void* data, DWORD size) {
    EXPECT_EQ(SHSetValueW(HKEY_CURRENT_USER, name, name, type, data, size), 0);
  });
  const std::string saved = platform::SaveRegistry();
  platform::LoadRegistry(saved);
  EXPECT_EQ(platform::SaveRegistry(), saved);
  visit([](LPCWSTR name, DWORD type, const void* data, DWORD size) {
    DWORD storedType = 0, storedSize = 204;
    char stored[204];
    EXPECT_EQ(SHGetValueW(HKEY_CURRENT_USER, name, name, &storedType, stored, &storedSize), 0);
    EXPECT_TRUE(storedType == type && storedSize == size && std::memcmp(stored, data, size) == 0);
  });
}

TEST_F(RegistryNativeTest, AMalformedTextIsRefusedAtItsLineAndLeavesTheRegistry) {
  hive::PutText("HKCU\\k", "v", "kept");
  const std::string before = platform::SaveRegistry();
  for (const std::string line :
       {"\"v\"=\"1", "Windows Registry Editor", "[HKEY_USERS]", "[HKEY_CURRENT_USER\\]",
        "[HKEY_CURRENT_USER\\b", "@=\"1\"2", "@=dword:1", "@=hex(123456789):", "@=hex(3):0g", "@=hex(3):00,",
        "\x1b is longer than what is said of a line of sixty units"}) {
    const std::string refusal = Raised(
        [&] { platform::LoadRegistry("[HKEY_CURRENT_USER]\n\n[HKEY_CURRENT_USER\\a]\n" + line + "\n"); });
    const std::string shown = line[0] == '\x1b' ? "^001b" + line.substr(1, 59) : line;
    EXPECT_EQ(refusal, "line 4: malformed: " + shown);
    EXPECT_EQ(platform::SaveRegistry(), before);
  }
}

}  // namespace
