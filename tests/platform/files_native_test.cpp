// Files where Wine cannot show it: read-only files and denied folders (a superuser's Wine ignores them),
// appends that stay whole, uses by other families, names that go at once, and access lists seen through other
// handles.
#include <aclapi.h>
#include <platform/control.h>
#include <sddl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>
#include <sstream>

#include "../../platform/src/file_use.h"
#include "common/handles.h"
#include "support/guest.h"

namespace {

namespace fs = std::filesystem;

using platform::shareAll;

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

TEST_F(FilesNativeTest, AppendsOfSeveralProcessesStayWhole) {
  constexpr int processes = 4, lines = 500;
  for (int p = 0; p < processes; ++p) {
    if (fork() != 0) continue;
    const UniqueFile file = Open(TEXT("C:\\scratch\\log"), FILE_APPEND_DATA, OPEN_ALWAYS);
    const std::string line(60, static_cast<char>('a' + p));
    bool written = true;
    for (int i = 0; i < lines; ++i) {
      OVERLAPPED end{};
      end.Offset = end.OffsetHigh = 0xFFFFFFFF;
      written = WriteFile(file.get(), (line + "\n").data(), 61, nullptr, &end) && written;
    }
    _exit(written ? 0 : 1);
  }
  for (int p = 0; p < processes; ++p) {
    int status = 1;
    wait(&status);
    EXPECT_EQ(status, 0);
  }
  std::ifstream log(Host("log"));
  int count = 0;
  for (std::string line; std::getline(log, line); ++count) {
    ASSERT_EQ(line, std::string(60, line.empty() ? 'a' : line[0]));
  }
  EXPECT_EQ(count, processes * lines);
}

TEST_F(FilesNativeTest, NameOfADeletedFileIsFreeAtOnce) {
  const WCHAR* path = TEXT("C:\\scratch\\file");
  const UniqueFile old = Open(path, FILE_APPEND_DATA, CREATE_NEW);
  EXPECT_TRUE(DeleteFileW(path));
  EXPECT_EQ(GetFileAttributesW(path), INVALID_FILE_ATTRIBUTES);
  const UniqueFile fresh = Open(path, FILE_APPEND_DATA, CREATE_NEW);
  ASSERT_TRUE(fresh);
  BY_HANDLE_FILE_INFORMATION first{}, second{};
  ASSERT_TRUE(GetFileInformationByHandle(old.get(), &first));
  ASSERT_TRUE(GetFileInformationByHandle(fresh.get(), &second));
  EXPECT_NE(first.nFileIndexLow, second.nFileIndexLow);
}

TEST_F(FilesNativeTest, UseOfAnotherFamilyTakesPartInSharing) {
  const WCHAR* path = TEXT("C:\\scratch\\module");
  std::ofstream(Host("module")) << "x";
  DWORD error = 0;
  auto use = platform::UseFile(Host("module"), GENERIC_EXECUTE, FILE_SHARE_READ, &error);
  ASSERT_TRUE(use);
  EXPECT_TRUE(Open(path, GENERIC_READ, OPEN_EXISTING));
  EXPECT_FALSE(Open(path, GENERIC_WRITE, OPEN_EXISTING));
  EXPECT_EQ(GetLastError(), ERROR_SHARING_VIOLATION);
  EXPECT_FALSE(DeleteFileW(path));
  use.reset();
  const UniqueFile writer = Open(path, GENERIC_WRITE, OPEN_EXISTING);
  ASSERT_TRUE(writer);
  EXPECT_FALSE(platform::UseFile(Host("module"), GENERIC_EXECUTE, FILE_SHARE_READ, &error));
  EXPECT_EQ(error, ERROR_SHARING_VIOLATION);
  EXPECT_FALSE(platform::UseFile(Host("none"), GENERIC_EXECUTE, FILE_SHARE_READ, &error));
  EXPECT_EQ(error, ERROR_FILE_NOT_FOUND);
}

TEST_F(FilesNativeTest, AccessListStaysWithTheFileAndItsRightsAreNeeded) {
  const WCHAR* path = TEXT("C:\\scratch\\file");
  // The rights that the list gives, or the error in place of the list.
  const auto read = [](const UniqueFile& file) {
    PACL list = nullptr;
    PSECURITY_DESCRIPTOR descriptor = nullptr;
    const DWORD error = GetSecurityInfo(file.get(), SE_FILE_OBJECT, DACL_SECURITY_INFORMATION, nullptr,
                                        nullptr, &list, nullptr, &descriptor);
    if (error != ERROR_SUCCESS) return std::vector<DWORD>{error};
    ULONG count = 0;
    PEXPLICIT_ACCESS_W entries = nullptr;
    GetExplicitEntriesFromAclW(list, &count, &entries);
    std::vector<DWORD> rights;
    for (ULONG i = 0; i < count; ++i) rights.push_back(entries[i].grfAccessPermissions);
    LocalFree(entries);
    LocalFree(descriptor);
    return rights;
  };
  EXPLICIT_ACCESSW entry{GENERIC_READ | GENERIC_WRITE, SET_ACCESS, NO_INHERITANCE, {}};
  PSID interactive = nullptr;
  ASSERT_TRUE(ConvertStringSidToSidW(TEXT("IU"), &interactive));
  entry.Trustee.ptstrName = static_cast<LPWSTR>(interactive);
  PACL list = nullptr;
  ASSERT_EQ(SetEntriesInAclW(1, &entry, nullptr, &list), ERROR_SUCCESS);
  const auto change = [&](const UniqueFile& file) {
    return SetSecurityInfo(file.get(), SE_FILE_OBJECT, DACL_SECURITY_INFORMATION, nullptr, nullptr, list,
                           nullptr);
  };
  EXPECT_EQ(change(Open(path, GENERIC_READ, CREATE_NEW)), ERROR_ACCESS_DENIED);
  const std::vector<DWORD> standard = read(Open(path, GENERIC_READ, OPEN_EXISTING));
  EXPECT_EQ(change(Open(path, WRITE_DAC, OPEN_EXISTING)), ERROR_SUCCESS);
  const std::vector<DWORD> fileRights{FILE_GENERIC_READ | FILE_GENERIC_WRITE};
  EXPECT_EQ(read(Open(path, GENERIC_READ, OPEN_EXISTING)), fileRights)
      << "generic rights become those of files";
  EXPECT_EQ(read(Open(path, FILE_APPEND_DATA, OPEN_EXISTING)), std::vector<DWORD>{ERROR_ACCESS_DENIED});
  ASSERT_TRUE(DeleteFileW(path));
  EXPECT_EQ(read(Open(path, GENERIC_READ, CREATE_NEW)), standard) << "a new file has a list of its own";
  LocalFree(list);
  LocalFree(interactive);
}

TEST_F(FilesNativeTest, CensusCountsWhatIsOpen) {
  std::ofstream(Host("file")) << "x";
  const UniqueFile file = Open(TEXT("C:\\scratch\\file"), GENERIC_READ, OPEN_EXISTING);
  WIN32_FIND_DATAW data;
  const UniqueFind find(FindFirstFileW(TEXT("C:\\scratch\\*"), &data));
  const std::map<std::string, std::size_t> expected{{"file", 1}, {"find", 1}};
  EXPECT_EQ(platform::Census(), expected);
}

}  // namespace
