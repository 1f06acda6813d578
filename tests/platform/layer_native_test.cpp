// The rules that every call of the layer keeps: one gate, whose planned fault it reports and then does
// nothing; handles that only their own call closes; arguments that it does not know end the process.
#include <shlobj.h>
#include <shlwapi.h>

#include "support/fault_runs.h"
#include "support/module_fixture.h"

namespace {

class LayerNativeTest : public GuestTest {};

TEST_F(LayerNativeTest, APlannedFaultIsReportedAndTheCallDoesNothing) {
  const auto set = [] { return SHSetValueW(HKEY_CURRENT_USER, TEXT("s"), nullptr, REG_SZ, nullptr, 0); };
  const auto make = [] { return CreateDirectoryW(TEXT("C:\\made"), nullptr) ? 0 : GetLastError(); };
  const std::string before = platform::SaveRegistry();
  platform::ArmFaultPlan({.action = platform::FaultPlan::Action::Fail,
                          .call = 2,
                          .function = "SHSetValueW",
                          .repeat = true,
                          .error = 1234});
  EXPECT_EQ(set(), 0);
  EXPECT_EQ(SHDeleteKeyW(HKEY_CURRENT_USER, TEXT("s")), 0);
  for (int time = 0; time < 2; ++time) EXPECT_EQ(set(), 1234);
  EXPECT_EQ(Failing("", 1, make), DWORD{ERROR_ACCESS_DENIED});
  EXPECT_EQ(platform::SaveRegistry(), before);
  EXPECT_EQ(GetFileAttributesW(TEXT("C:\\made")), INVALID_FILE_ATTRIBUTES);
}

TEST_F(LayerNativeTest, AHandleIsClosedByTheCallOfItsKind) {
  WIN32_FIND_DATAW data;
  HKEY key = nullptr;
  const HANDLE find = FindFirstFileW(TEXT("C:\\*"), &data),
               event = CreateEventW(nullptr, TRUE, TRUE, nullptr);
  ASSERT_EQ(RegOpenKeyExW(HKEY_CURRENT_USER, nullptr, 0, KEY_READ, &key), 0);
  EXPECT_DEATH(CloseHandle(find), "CloseHandle: not supported");
  EXPECT_DEATH(CloseHandle(key), "CloseHandle: not supported");
  EXPECT_DEATH(FindClose(event), "FindClose: not supported");
  EXPECT_DEATH(RegCloseKey(static_cast<HKEY>(event)), "RegCloseKey: not supported");
  EXPECT_DEATH(FreeLibrary(static_cast<HMODULE>(event)), "FreeLibrary: not supported");
  EXPECT_TRUE(FindClose(find) && CloseHandle(event) && RegCloseKey(key) == 0);
  EXPECT_FALSE(FindClose(find) || CloseHandle(event));
  EXPECT_EQ(GetLastError(), DWORD{ERROR_INVALID_HANDLE});
}

TEST_F(LayerNativeTest, ASearchFindsNamesInTheirOrder) {
  for (const WCHAR* name : {TEXT("\\b"), TEXT("\\C"), TEXT("\\a")}) WriteFileAt(Scratch() + name, "");
  WIN32_FIND_DATAW data;
  const UniqueFind search(FindFirstFileW(TEXT("C:\\scratch\\*"), &data));
  std::string found;
  do {
    found += WideToUtf8(data.cFileName) + " ";
  } while (FindNextFileW(search.get(), &data));
  EXPECT_EQ(found, ". .. a b C ");
}

TEST_F(LayerNativeTest, AReadOnlyFileIsOpenedForReadingAlone) {
  const WideString path = Scratch() + TEXT("\\file");
  WriteFileAt(path, "x");
  std::filesystem::permissions(platform::GuestRoot() / "scratch" / "file", std::filesystem::perms{0444});
  for (const DWORD access : {GENERIC_READ, GENERIC_WRITE}) {
    SetLastError(0);
    const UniqueFile opened(CreateFileW(path.c_str(), access, 0, nullptr, OPEN_EXISTING, 0, nullptr));
    EXPECT_EQ(static_cast<bool>(opened), access == GENERIC_READ);
    EXPECT_EQ(GetLastError() == ERROR_ACCESS_DENIED, access == GENERIC_WRITE);
  }
}

TEST_F(LayerNativeTest, ASpecialFolderIsMadeOnlyForThoseWhoAsk) {
  WCHAR path[MAX_PATH];
  for (const BOOL there : {FALSE, TRUE}) {
    EXPECT_EQ(SHGetSpecialFolderPathW(nullptr, path, CSIDL_PROGRAMS, FALSE), there);
    EXPECT_EQ(SHGetFolderPathW(nullptr, CSIDL_PROGRAMS, nullptr, SHGFP_TYPE_CURRENT, path) == S_OK, there);
    EXPECT_TRUE(SHGetSpecialFolderPathW(nullptr, path, CSIDL_PROGRAMS, TRUE));
  }
}

}  // namespace
