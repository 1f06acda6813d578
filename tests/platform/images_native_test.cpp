// Executables that are refused: malformed ones whole, and those that an update would damage when it is
// committed. What an update that is not refused keeps.
#include <platform/control.h>

#include <cstring>

#include "stub/stub.h"
#include "support/module_fixture.h"

namespace {

class ImagesNativeTest : public GuestTest {
 protected:
  static WideString Path() { return Scratch() + TEXT("\\Chess (Mac).exe"); }
  static void Write(const std::vector<std::byte>& image) {
    WriteFileAt(Path(), {reinterpret_cast<const char*>(image.data()), image.size()});
  }
};

// The stub's layout: headers, then code at 0x200, resources at 0x400 with directories at 0, 24 and 48, each
// with one entry at its offset 16, and the data entry at 72.
TEST_F(ImagesNativeTest, OddFilesAreRefused) {
  constexpr std::size_t signature = 0x40, optional = 0x58, second = 0x170, third = 0x198, resources = 0x400;
  using Values = std::vector<std::pair<std::size_t, DWORD>>;
  // Offsets, sizes and alignments
  const Values headers = {{60, 0x7FFFFFF0},
                          {signature, 0x4551},
                          {signature + 20, 0x00220010},
                          {signature + 20, 0x0022FFF0},
                          {signature + 20, 0x00220080},
                          {signature + 4, 0xFFFF8664},
                          {optional, 0x010C},
                          {optional + 32, 0},
                          {optional + 36, 0x300},
                          {optional + 60, 0x10000}};
  // Bytes outside the file, addresses that overlap or wrap
  const Values sections = {
      {second + 16, 0x10000}, {second + 20, 0xFFFFFF00}, {third + 12, 0x2000}, {second + 8, 0xFFFFF000}};
  // Places, counts and names; one that is its own child; data
  const Values directories = {
      {optional + 112 + 16, 0x9000}, {resources + 12, 0xFFFFFFFF},      {resources + 20, 24},
      {resources + 20, 0x80000200},  {resources + 48 + 20, 0x80000000}, {resources + 16, 0x800001FF},
      {resources + 16, 0x10000},     {resources + 48 + 16, 0x80000004}, {resources + 48 + 20, 0x1F8},
      {resources + 72, 0x9000},      {resources + 76, 0x10000},         {resources + 76, 0xFFFFFFFF}};
  // What an update would have to carry along: a symbol table, a certificate, debug data
  const Values readable = {{signature + 12, 4}, {optional + 112 + 32, 4}, {optional + 112 + 48, 4}};
  for (const Values* values : {&headers, &sections, &directories, &readable}) {
    for (const auto& [offset, value] : *values) {
      SCOPED_TRACE(testing::Message() << std::hex << offset << ": " << value);
      std::vector<std::byte> image = stub::MakeTemplateStub({.relocations = true});
      std::memcpy(&image[offset], &value, sizeof value);
      Write(image);
      UniqueModule module(LoadLibraryExW(Path().c_str(), nullptr, LOAD_LIBRARY_AS_DATAFILE));
      EXPECT_EQ(static_cast<bool>(module), values == &readable);
      module.reset();
      const HANDLE update = BeginUpdateResourceW(Path().c_str(), FALSE);
      EXPECT_EQ(update != nullptr, values == &readable);
      EXPECT_FALSE(update != nullptr && EndUpdateResourceW(update, FALSE));
      EXPECT_EQ(GetLastError(), DWORD{ERROR_BAD_EXE_FORMAT});
    }
  }
}

TEST_F(ImagesNativeTest, AnUpdateKeepsTheFilesModeAndIsRefusedOnceItIsReadOnly) {
  namespace fs = std::filesystem;
  Write(stub::MakeTemplateStub());
  const fs::path file = platform::GuestRoot() / "scratch" / "Chess (Mac).exe";
  for (const fs::perms mode : {fs::perms{0750}, fs::perms{0550}}) {
    const HANDLE update = BeginUpdateResourceW(Path().c_str(), FALSE);
    fs::permissions(file, mode);
    EXPECT_EQ(EndUpdateResourceW(update, FALSE), mode == fs::perms{0750});
    EXPECT_EQ(fs::status(file).permissions(), mode);
  }
}

}  // namespace
