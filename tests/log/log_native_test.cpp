// The log's file: where it is made, how it is found again, and who may use it. The host is looked at
// directly, since the layer has no call that moves a file; a folder without the owner's write bit is one that
// denies access.
#include <aclapi.h>
#include <gtest/gtest.h>
#include <platform/control.h>
#include <sddl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <fstream>
#include <sstream>
#include <thread>

#include "log/log.h"
#include "support/fail_call.h"
#include "support/guest.h"
#include "support/own_process.h"

namespace {

namespace fs = std::filesystem;

class LogFile : public GuestTest {
 protected:
  static fs::path Primary() { return platform::GuestRoot() / "Windows" / "Logs" / "tessarine.log"; }
  static fs::path Fallback() {
    return platform::GuestRoot() / "Users" / "guest" / "AppData" / "Local" / "tessarine.log";
  }

  static void Write(const std::string& message) { WriteLog("T", "C", 1, "%s", message.c_str()); }

  // Time, level and origin left out; the lines' messages, each with a ';'.
  static std::string Messages(const fs::path& path) {
    std::ifstream log(path);
    std::string messages;
    for (std::string line; std::getline(log, line);) messages += line.substr(line.rfind(' ') + 1) + ';';
    return messages;
  }

  // Writes lines until the file at `path` has one. The log looks once a second whether its file is still
  // there.
  static void WriteUntilIn(const fs::path& path) {
    const auto start = std::chrono::steady_clock::now();
    while (Messages(path).empty()) {
      ASSERT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(30));
      Write("again");
      std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
  }

  static void Deny(const fs::path& folder, bool deny) {
    fs::permissions(folder, fs::perms::owner_write, deny ? fs::perm_options::remove : fs::perm_options::add);
  }

  // The mask that interactive users have on the file, 0 without an entry; -1 when there are two.
  static std::int64_t InteractiveMask(const fs::path& path) {
    const std::u16string guestPath = u"C:\\" + fs::relative(path, platform::GuestRoot()).u16string();
    const HANDLE file = CreateFileW(guestPath.c_str(), READ_CONTROL, 7, nullptr, OPEN_EXISTING, 0, nullptr);
    PACL dacl = nullptr;
    PSECURITY_DESCRIPTOR descriptor = nullptr;
    EXPECT_EQ(GetSecurityInfo(file, SE_FILE_OBJECT, DACL_SECURITY_INFORMATION, nullptr, nullptr, &dacl,
                              nullptr, &descriptor),
              0u);
    ULONG count = 0;
    PEXPLICIT_ACCESSW entries = nullptr;
    EXPECT_EQ(GetExplicitEntriesFromAclW(dacl, &count, &entries), 0u);
    EXPECT_GE(count, 3u);  // those that every file has
    PSID interactive = nullptr;
    ConvertStringSidToSidW(TEXT("IU"), &interactive);
    std::int64_t mask = 0;
    for (ULONG i = 0; i < count; ++i) {
      if (!EqualSid(entries[i].Trustee.ptstrName, interactive)) continue;
      mask = mask == 0 ? entries[i].grfAccessPermissions : -1;
      EXPECT_EQ(entries[i].grfInheritance, NO_INHERITANCE);
    }
    LocalFree(interactive);
    LocalFree(entries);
    LocalFree(descriptor);
    CloseHandle(file);
    return mask;
  }

  static constexpr std::int64_t readAndWrite = FILE_GENERIC_READ | FILE_GENERIC_WRITE;
};

TEST_F(LogFile, AnExistingFileIsContinuedWithItsAccessListAsItIs) {
  InOwnProcess([] {
    fs::create_directories(Primary().parent_path());
    std::ofstream(Primary()) << "- before\n";
    Write("a");
    EXPECT_EQ(Messages(Primary()), "before;a;");
    EXPECT_EQ(InteractiveMask(Primary()), 0);
  });
}

TEST_F(LogFile, IsMadeWithItsFolderKeptOpenAndOpenedAnewWhenDeletedOrReplaced) {
  InOwnProcess([] {
    ASSERT_FALSE(fs::exists(Primary().parent_path()));
    Write("first");
    Write("second");
    EXPECT_EQ(Messages(Primary()), "first;second;");
    EXPECT_EQ(InteractiveMask(Primary()), readAndWrite);
    EXPECT_EQ(platform::Census(), (std::map<std::string, std::size_t>{{"file", 1}}));
    const fs::path moved = Primary().parent_path() / "moved.log";
    fs::rename(Primary(), moved);
    WriteUntilIn(Primary());
    EXPECT_EQ(InteractiveMask(Primary()), readAndWrite);
    EXPECT_TRUE(Messages(moved).starts_with("first;second;"));
    const std::string left = Messages(moved);

    fs::remove(Primary());
    std::ofstream(Primary()).flush();  // someone else's, and empty
    WriteUntilIn(Primary());
    EXPECT_EQ(InteractiveMask(Primary()), 0);
    Write("last");
    EXPECT_TRUE(Messages(Primary()).ends_with("last;"));
    EXPECT_EQ(Messages(moved), left);
    EXPECT_EQ(platform::Census(), (std::map<std::string, std::size_t>{{"file", 1}}));
    EXPECT_FALSE(fs::exists(Fallback()));
  });
}

TEST_F(LogFile, FallsBackToTheUsersFolderForGoodAndTriesAgainForEachLine) {
  InOwnProcess([] {
    fs::create_directories(Primary().parent_path());
    fs::create_directories(Fallback().parent_path());
    Deny(Primary().parent_path(), true);
    Deny(Fallback().parent_path(), true);
    Write("lost");
    Write("lost");
    Deny(Primary().parent_path(), false);
    Write("lost");  // the switch is for good
    Deny(Fallback().parent_path(), false);
    Write("a");
    Write("b");
    EXPECT_EQ(Messages(Fallback()), "a;b;");
    EXPECT_EQ(InteractiveMask(Fallback()), readAndWrite);
    EXPECT_FALSE(fs::exists(Primary()));
  });
}

TEST_F(LogFile, AFileThatCannotBeMadeAgainMovesTheLogToTheFallback) {
  InOwnProcess([] {
    Write("first");
    fs::remove(Primary());
    Deny(Primary().parent_path(), true);
    WriteUntilIn(Fallback());
    EXPECT_FALSE(fs::exists(Primary()));
    EXPECT_EQ(platform::Census(), (std::map<std::string, std::size_t>{{"file", 1}}));
  });
}

// When the fallback cannot be opened either, the old file is let go of all the same.
TEST_F(LogFile, AnUnusableFallbackLeavesNoFileOpen) {
  InOwnProcess([] {
    Write("first");
    const fs::path moved = Primary().parent_path() / "moved.log";
    fs::rename(Primary(), moved);
    Deny(Primary().parent_path(), true);
    Deny(Fallback().parent_path(), true);
    const auto start = std::chrono::steady_clock::now();
    while (!platform::Census().empty() &&
           std::chrono::steady_clock::now() - start < std::chrono::seconds(5)) {
      Write("again");
      std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    EXPECT_TRUE(platform::Census().empty());
    Deny(Primary().parent_path(), false);
    Deny(Fallback().parent_path(), false);
  });
}

TEST_F(LogFile, WithoutAFolderTheLogLiesAtTheRoot) {
  InOwnProcess([] {
    fs::create_directories(platform::GuestRoot() / "Windows");
    Deny(platform::GuestRoot() / "Windows", true);
    Write("a");
    EXPECT_EQ(Messages(platform::GuestRoot() / "tessarine.log"), "a;");
    Deny(platform::GuestRoot() / "Windows", false);
  });
}

// The first line settles the place of the log, hence a process for each call that fails in it.
TEST_F(LogFile, AFailingCallMovesTheLogAtMostAndOnlyWithoutAFileOrAWriteIsALineLost) {
  for (const bool denied : {false, true}) {
    const std::size_t last = denied ? 27 : 21;
    for (std::size_t number = 1; number <= last; ++number) {
      InOwnProcess([number, denied, last] {
        fs::create_directories(Primary().parent_path());
        Deny(Primary().parent_path(), denied);
        FailCall(number);
        SetLastError(77);
        Write("a");
        EXPECT_EQ(GetLastError(), 77u);
        const std::vector<std::string> calls = platform::DisarmFaultPlan();
        EXPECT_TRUE(number < last || calls.size() < last) << "not all calls have failed";
        const auto end = calls.begin() + static_cast<std::ptrdiff_t>(std::min(number, calls.size()));
        const std::string failed = number <= calls.size() ? calls[number - 1] : "";
        const bool noFile = (failed == "CreateFileW" || failed == "MultiByteToWideChar") &&
                            std::count(calls.begin(), end, "SHGetFolderPathW") == 1;
        Write("b");
        const fs::path root = platform::GuestRoot() / "tessarine.log";
        EXPECT_EQ(Messages(Primary()) + Messages(Fallback()) + Messages(root),
                  noFile || failed == "WriteFile" ? "b;" : "a;b;")
            << failed;
        EXPECT_EQ(platform::Census(), (std::map<std::string, std::size_t>{{"file", 1}})) << failed;
        Deny(Primary().parent_path(), false);
      });
    }
  }
}

}  // namespace
