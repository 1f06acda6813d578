// Files where Wine cannot show it: read-only files and denied folders, which a superuser's Wine ignores.
// A folder denied here stays so until TearDown, which cannot empty it otherwise.
#include <platform/control.h>

#include <fstream>

#include "common/handles.h"
#include "support/guest.h"

namespace {

namespace fs = std::filesystem;

constexpr DWORD shareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;

class FilesNativeTest : public GuestTest {
 protected:
  void SetUp() override {
    GuestTest::SetUp();
    Scratch();
  }
  void TearDown() override {
    fs::permissions(Host(""), fs::perms::owner_all);
    GuestTest::TearDown();
  }

  static fs::path Host(const char* name) { return platform::GuestRoot() / "scratch" / name; }

  static UniqueFile Open(const WCHAR* path, DWORD access, DWORD disposition) {
    return UniqueFile(CreateFileW(path, access, shareAll, nullptr, disposition, 0, nullptr));
  }
};

TEST_F(FilesNativeTest, ReadOnlyFileIsNeitherWrittenNorDeleted) {
  std::ofstream(Host("file")) << "x";
  const WCHAR* path = TEXT("C:\\scratch\\file");
  ASSERT_TRUE(SetFileAttributesW(path, FILE_ATTRIBUTE_READONLY));
  EXPECT_EQ(GetFileAttributesW(path), FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_ARCHIVE);
  EXPECT_FALSE(DeleteFileW(path));
  EXPECT_EQ(GetLastError(), ERROR_ACCESS_DENIED);
  EXPECT_FALSE(Open(path, FILE_APPEND_DATA, OPEN_ALWAYS));
  EXPECT_EQ(GetLastError(), ERROR_ACCESS_DENIED);
  EXPECT_FALSE(CopyFileW(TEXT("C:\\scratch\\file"), path, FALSE));
  EXPECT_TRUE(Open(path, GENERIC_READ, OPEN_EXISTING));
  ASSERT_TRUE(SetFileAttributesW(path, FILE_ATTRIBUTE_NORMAL));
  EXPECT_TRUE(DeleteFileW(path));
}

TEST_F(FilesNativeTest, NothingIsMadeOrDeletedInADeniedFolder) {
  std::ofstream(Host("file")) << "x";
  fs::create_directory(Host("folder"));
  ASSERT_TRUE(SetFileAttributesW(TEXT("C:\\scratch"), FILE_ATTRIBUTE_READONLY));
  const auto denied = [](bool succeeded) { return !succeeded && GetLastError() == ERROR_ACCESS_DENIED; };
  EXPECT_TRUE(denied(static_cast<bool>(Open(TEXT("C:\\scratch\\new"), GENERIC_WRITE, CREATE_NEW))));
  EXPECT_TRUE(denied(CreateDirectoryW(TEXT("C:\\scratch\\new"), nullptr)));
  EXPECT_TRUE(denied(RemoveDirectoryW(TEXT("C:\\scratch\\folder"))));
  EXPECT_TRUE(denied(DeleteFileW(TEXT("C:\\scratch\\file"))));
  EXPECT_TRUE(denied(CopyFileW(TEXT("C:\\scratch\\file"), TEXT("C:\\scratch\\new"), FALSE)));
  EXPECT_TRUE(Open(TEXT("C:\\scratch\\file"), GENERIC_WRITE, OPEN_EXISTING)) << "old files can be written";
}

}  // namespace
