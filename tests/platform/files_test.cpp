// Files as the module and its tests use them: opening, sharing, appending, copying, deleting, enumerating.
// Read-only attributes and denied folders are tested natively alone: a
// superuser's Wine does not heed them.
#include <windows.h>

#include "common/handles.h"
#include "support/guest.h"

namespace {

constexpr DWORD shareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
constexpr DWORD readWrite = GENERIC_READ | GENERIC_WRITE;

class FilesTest : public GuestTest {
 protected:
  static WideString Path(WideView name) { return Scratch().append(TEXT("\\")).append(name); }

  static UniqueFile Open(const WideString& path, DWORD access, DWORD share, DWORD disposition,
                         DWORD flags = 0) {
    return UniqueFile(CreateFileW(path.c_str(), access, share, nullptr, disposition, flags, nullptr));
  }

  static void Write(const WideString& path, std::string_view text) {
    const UniqueFile file = Open(path, GENERIC_WRITE, shareAll, CREATE_ALWAYS);
    DWORD written = 0;
    ASSERT_TRUE(WriteFile(file.get(), text.data(), static_cast<DWORD>(text.size()), &written, nullptr));
    ASSERT_EQ(written, text.size());
  }

  static std::string Read(const WideString& path) {
    const UniqueFile file = Open(path, GENERIC_READ, shareAll, OPEN_EXISTING);
    if (!file) return "(error " + std::to_string(GetLastError()) + ")";
    char buffer[100];
    DWORD read = 0;
    EXPECT_TRUE(ReadFile(file.get(), buffer, sizeof buffer, &read, nullptr));
    return {buffer, read};
  }

  static bool Append(HANDLE file, std::string_view text) {
    OVERLAPPED end{};
    end.Offset = end.OffsetHigh = 0xFFFFFFFF;
    DWORD written = 0;
    return WriteFile(file, text.data(), static_cast<DWORD>(text.size()), &written, &end) &&
           written == text.size();
  }

  // The names that a pattern finds in the scratch folder, each followed by a blank; a folder's with a "/"
  // first.
  static std::string Found(WideView pattern) {
    WIN32_FIND_DATAW data;
    const UniqueFind find(FindFirstFileW(Path(pattern).c_str(), &data));
    if (!find) return "(error " + std::to_string(GetLastError()) + ")";
    std::string names;
    do {
      if (data.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) names += '/';
      names += WideToUtf8(data.cFileName) + ' ';
    } while (FindNextFileW(find.get(), &data));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_NO_MORE_FILES));
    return names;
  }
};

TEST_F(FilesTest, DispositionsDecideOnNewAndOldFiles) {
  constexpr DWORD unchanged = 77;
  const struct {
    DWORD disposition;
    bool exists;
    bool opens;
    DWORD error;  // the last error, which is told on success too
    const char* content;
  } cases[] = {
      {CREATE_NEW, false, true, unchanged, ""},
      {CREATE_NEW, true, false, ERROR_FILE_EXISTS, "old"},
      {CREATE_ALWAYS, false, true, 0, ""},
      {CREATE_ALWAYS, true, true, ERROR_ALREADY_EXISTS, ""},
      {OPEN_EXISTING, false, false, ERROR_FILE_NOT_FOUND, "(error 2)"},
      {OPEN_EXISTING, true, true, unchanged, "old"},
      {OPEN_ALWAYS, false, true, 0, ""},
      {OPEN_ALWAYS, true, true, ERROR_ALREADY_EXISTS, "old"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::Message() << "disposition " << c.disposition << ", exists " << c.exists);
    const WideString path = Path(TEXT("file"));
    DeleteFileW(path.c_str());
    if (c.exists) Write(path, "old");
    SetLastError(unchanged);
    UniqueFile file = Open(path, GENERIC_WRITE, shareAll, c.disposition);
    const DWORD error = GetLastError();
    EXPECT_EQ(static_cast<bool>(file), c.opens);
    if (c.error != unchanged) {
      EXPECT_EQ(error, c.error);
    }
    file.reset();
    EXPECT_EQ(Read(path), c.content);
  }
}

TEST_F(FilesTest, TwoOpensAgreeOrTheSecondFails) {
  const struct {
    DWORD access, share, otherAccess, otherShare;
    bool agree;
  } cases[] = {
      {GENERIC_READ, FILE_SHARE_READ, GENERIC_READ, FILE_SHARE_READ, true},
      {GENERIC_READ, FILE_SHARE_READ, GENERIC_WRITE, shareAll, false},
      {GENERIC_WRITE, shareAll, GENERIC_READ, FILE_SHARE_READ, false},
      {GENERIC_READ, 0, GENERIC_READ, shareAll, false},
      {FILE_APPEND_DATA, shareAll, FILE_APPEND_DATA, shareAll, true},
      {FILE_APPEND_DATA, FILE_SHARE_READ, FILE_APPEND_DATA, shareAll, false},
      {GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, DELETE, shareAll, false},
      {GENERIC_READ, FILE_SHARE_READ, FILE_READ_ATTRIBUTES, 0, true},  // attributes alone need no sharing
  };
  Write(Path(TEXT("file")), "x");
  for (const auto& c : cases) {
    SCOPED_TRACE(&c - cases);
    UniqueFile first = Open(Path(TEXT("file")), c.access, c.share, OPEN_EXISTING);
    ASSERT_TRUE(first);
    EXPECT_EQ(static_cast<bool>(Open(Path(TEXT("file")), c.otherAccess, c.otherShare, OPEN_EXISTING)),
              c.agree);
    if (!c.agree) {
      EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_SHARING_VIOLATION));
    }
    first.reset();
    EXPECT_TRUE(Open(Path(TEXT("file")), c.otherAccess, c.otherShare, OPEN_EXISTING))
        << "a closed file stays in use";
  }
}

TEST_F(FilesTest, WritesGoToTheirOffsetAndAppendsToTheEnd) {
  const WideString path = Path(TEXT("file"));
  const UniqueFile first = Open(path, readWrite, shareAll, CREATE_NEW);
  const UniqueFile second = Open(path, FILE_APPEND_DATA, shareAll, OPEN_ALWAYS);
  EXPECT_TRUE(Append(first.get(), "one,"));
  EXPECT_TRUE(Append(second.get(), "two,"));
  EXPECT_TRUE(Append(first.get(), "three"));
  OVERLAPPED start{};
  start.Offset = 1;
  DWORD written = 0;
  EXPECT_TRUE(WriteFile(first.get(), "NE", 2, &written, &start));
  EXPECT_EQ(Read(path), "oNE,two,three");
}

TEST_F(FilesTest, DeletionNeedsEveryOpenHandleToShareIt) {
  const WideString path = Path(TEXT("file"));
  Write(path, "x");
  UniqueFile file = Open(path, GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, OPEN_EXISTING);
  EXPECT_FALSE(DeleteFileW(path.c_str()));
  EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_SHARING_VIOLATION));
  file = Open(path, GENERIC_READ, shareAll, OPEN_EXISTING);
  EXPECT_TRUE(DeleteFileW(path.c_str()));
  char byte = 0;
  DWORD read = 0;
  EXPECT_TRUE(ReadFile(file.get(), &byte, 1, &read, nullptr)) << "the handle outlives the name";
  EXPECT_EQ(byte, 'x');
  file.reset();
  EXPECT_FALSE(DeleteFileW(path.c_str()));
  EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_FILE_NOT_FOUND));
}

TEST_F(FilesTest, CopiesOverwriteUnlessForbiddenOrInUse) {
  Write(Path(TEXT("from")), "new content");
  const WideString target = Path(TEXT("to"));
  const auto copy = [&](WideView from, WideView to, BOOL failIfExists) -> DWORD {
    return CopyFileW(Path(from).c_str(), Path(to).c_str(), failIfExists) ? 0 : GetLastError();
  };
  EXPECT_EQ(copy(TEXT("from"), TEXT("to"), TRUE), 0u);
  EXPECT_EQ(Read(target), "new content");
  Write(target, "an old and longer content");
  EXPECT_EQ(copy(TEXT("from"), TEXT("to"), TRUE), static_cast<DWORD>(ERROR_FILE_EXISTS));
  EXPECT_EQ(Read(target), "an old and longer content");
  {
    const UniqueFile user = Open(target, GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_DELETE, OPEN_EXISTING);
    EXPECT_EQ(copy(TEXT("from"), TEXT("to"), FALSE), static_cast<DWORD>(ERROR_SHARING_VIOLATION));
    EXPECT_EQ(Read(target), "an old and longer content");
  }
  EXPECT_EQ(copy(TEXT("from"), TEXT("to"), FALSE), 0u);
  EXPECT_EQ(Read(target), "new content");
  EXPECT_EQ(copy(TEXT("none"), TEXT("to"), FALSE), static_cast<DWORD>(ERROR_FILE_NOT_FOUND));
  EXPECT_EQ(copy(TEXT("from"), TEXT("none\\to"), FALSE), static_cast<DWORD>(ERROR_PATH_NOT_FOUND));
  EXPECT_NE(copy(TEXT("from"), TEXT("FROM"), FALSE), 0u) << "a file cannot be copied onto itself";
  EXPECT_EQ(Read(Path(TEXT("from"))), "new content");
}

TEST_F(FilesTest, SearchesMatchPatternsWithoutCase) {
  EXPECT_EQ(Found(TEXT("*.exe")), "(error 2)");
  EXPECT_EQ(Found(TEXT("none\\*")), "(error 3)");
  for (const WideView name : {TEXT("b.EXE"), TEXT("a.exe"), TEXT("a.exe.bak"), TEXT("a\u00e9.txt")}) {
    Write(Path(name), "");
  }
  ASSERT_TRUE(CreateDirectoryW(Path(TEXT("c.exe")).c_str(), nullptr));
  const struct {
    WideView pattern;
    const char* names;
  } cases[] = {
      {TEXT("*.exe"), "a.exe b.EXE /c.exe "},
      {TEXT("?.exe"), "a.exe b.EXE /c.exe "},
      {TEXT("A*"), "a.exe a.exe.bak a\u00e9.txt "},
      {TEXT("a\u00c9.txt"), "a\u00e9.txt "},
      {TEXT("*x*e*"), "a.exe a.exe.bak b.EXE /c.exe "},
      {TEXT("b.exe"), "b.EXE "},
      {TEXT("*"), "/. /.. a.exe a.exe.bak a\u00e9.txt b.EXE /c.exe "},
      {TEXT("*.*"), "/. /.. a.exe a.exe.bak a\u00e9.txt b.EXE /c.exe "},
      {TEXT("d*"), "(error 2)"},
  };
  for (const auto& c : cases) EXPECT_EQ(Found(c.pattern), c.names) << WideToUtf8(c.pattern);
}

}  // namespace
