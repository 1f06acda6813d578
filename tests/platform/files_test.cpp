// Which uses of a file go together, as every build must have it.

#include "support/module_fixture.h"

namespace {

class FilesTest : public GuestTest {};

TEST_F(FilesTest, TwoOpensAgreeOrTheSecondFails) {
  constexpr DWORD all = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
  const struct {
    DWORD access, share, otherAccess, otherShare;
    bool agree;
  } cases[] = {
      {GENERIC_READ, FILE_SHARE_READ, GENERIC_READ, FILE_SHARE_READ, true},
      {GENERIC_READ, FILE_SHARE_READ, GENERIC_WRITE, all, false},
      {GENERIC_WRITE, all, GENERIC_READ, FILE_SHARE_READ, false},
      {GENERIC_READ, 0, GENERIC_READ, all, false},
      {FILE_APPEND_DATA, all, FILE_APPEND_DATA, all, true},
      {FILE_APPEND_DATA, FILE_SHARE_READ, FILE_APPEND_DATA, all, false},
      {GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, DELETE, all, false},
      {GENERIC_READ, FILE_SHARE_READ, FILE_READ_ATTRIBUTES, 0, true},  // attributes alone need no sharing
  };
  const WideString path = Scratch() + TEXT("\\file");
  const auto open = [&](DWORD access, DWORD share) {
    return UniqueFile(CreateFileW(path.c_str(), access, share, nullptr, OPEN_EXISTING, 0, nullptr));
  };
  WriteFileAt(path, "x");
  for (const auto& c : cases) {
    SCOPED_TRACE(&c - cases);
    UniqueFile first = open(c.access, c.share);
    SetLastError(0);
    EXPECT_EQ(static_cast<bool>(open(c.otherAccess, c.otherShare)), c.agree);
    EXPECT_EQ(GetLastError() == ERROR_SHARING_VIOLATION, !c.agree);
    first.reset();
    EXPECT_TRUE(open(c.otherAccess, c.otherShare)) << "a closed file stays in use";
  }
}

}  // namespace
