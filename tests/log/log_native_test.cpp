// The log's file: where it is made, how it is found again, who may use it, and what goes wrong on the way.
// The host is looked at directly, since the layer has no call that moves a file; a folder without the owner's
// write bit is one that denies access. A process settles its place once, hence one for each case.
#include <aclapi.h>
#include <sddl.h>

#include <ctime>
#include <fstream>
#include <new>
#include <thread>

#include "common/handles.h"
#include "log/log.h"
#include "log/log_security.h"
#include "support/fault_runs.h"
#include "support/guest.h"
#include "support/own_process.h"

namespace {

namespace fs = std::filesystem;

class LogFile : public GuestTest {
 protected:
  static fs::path Primary() { return platform::GuestRoot() / "Windows" / "Logs" / "tessarine.log"; }
  static fs::path Moved() { return Primary().parent_path() / "moved.log"; }
  static fs::path Fallback() {
    return platform::GuestRoot() / "Users" / "guest" / "AppData" / "Local" / "tessarine.log";
  }

  static void Write(const char* message) { WriteLog("T", "C", 1, "%s", message); }

  // Time, level and origin left out; the lines' messages, each with a ';'.
  static std::string Messages(const fs::path& path) {
    std::ifstream log(path);
    std::string messages;
    for (std::string line; std::getline(log, line);) messages += line.substr(line.rfind(' ') + 1) + ';';
    return messages;
  }

  // Writes lines until `reached`. The log looks once a second whether its file is still there.
  template <class Condition>
  static void WriteUntil(Condition reached) {
    for (int i = 0; i < 6000 && !reached(); ++i) {
      std::this_thread::sleep_for(std::chrono::milliseconds(5));
      Write("again");
    }
    EXPECT_TRUE(reached());
  }

  static void Deny(const fs::path& folder, bool deny) {
    fs::permissions(folder, fs::perms::owner_write, deny ? fs::perm_options::remove : fs::perm_options::add);
  }
  static std::size_t OpenFiles() { return platform::Census()["file"]; }
  static UniqueFile OpenForAccess(const fs::path& path) {
    const std::u16string name = u"C:\\" + fs::relative(path, platform::GuestRoot()).u16string();
    return UniqueFile(
        CreateFileW(name.c_str(), READ_CONTROL | WRITE_DAC, 7, nullptr, OPEN_EXISTING, 0, nullptr));
  }
  // The mask that interactive users have on the file, 0 without an entry; -1 when there are two, -2 without
  // an access list.
  static std::int64_t InteractiveMask(const fs::path& path) {
    PACL dacl = nullptr;
    PSECURITY_DESCRIPTOR descriptor = nullptr;
    EXPECT_EQ(GetSecurityInfo(OpenForAccess(path).get(), SE_FILE_OBJECT, DACL_SECURITY_INFORMATION, nullptr,
                              nullptr, &dacl, nullptr, &descriptor),
              0u);
    std::int64_t mask = dacl == nullptr ? -2 : 0;
    ULONG count = 0;
    PEXPLICIT_ACCESSW entries = nullptr;
    PSID interactive = nullptr;
    ConvertStringSidToSidW(TEXT("IU"), &interactive);
    if (dacl != nullptr) {
      EXPECT_EQ(GetExplicitEntriesFromAclW(dacl, &count, &entries), 0u);
      EXPECT_GE(count, 3u);  // those that every file has
    }
    for (ULONG i = 0; i < count; ++i) {
      if (!EqualSid(entries[i].Trustee.ptstrName, interactive)) continue;
      mask = mask == 0 ? entries[i].grfAccessPermissions : -1;
    }
    for (void* memory : {static_cast<void*>(interactive), static_cast<void*>(entries), descriptor})
      LocalFree(memory);
    return mask;
  }

  static constexpr std::int64_t readAndWrite = FILE_GENERIC_READ | FILE_GENERIC_WRITE;
};

TEST_F(LogFile, IsMadeWithItsFolderKeptOpenAndOpenedAnewWhenReplaced) {
  InOwnProcess([] {
    Write("first");
    Write("second");
    EXPECT_EQ(Messages(Primary()), "first;second;");
    EXPECT_EQ(InteractiveMask(Primary()), readAndWrite);
    fs::rename(Primary(), Moved());
    WriteUntil([] { return fs::exists(Primary()); });
    EXPECT_EQ(InteractiveMask(Primary()), readAndWrite);
    EXPECT_TRUE(Messages(Moved()).starts_with("first;second;"));
    const std::string left = Messages(Moved());

    fs::remove(Primary());
    std::ofstream(Primary()) << "- theirs\n";
    WriteUntil([] { return Messages(Primary()) != "theirs;"; });
    EXPECT_TRUE(Messages(Primary()).starts_with("theirs;again;"));
    EXPECT_EQ(InteractiveMask(Primary()), 0);  // somebody else's, and as they made it
    EXPECT_EQ(Messages(Moved()), left);
    EXPECT_EQ(OpenFiles(), 1u);
    EXPECT_FALSE(fs::exists(Fallback()));
  });
}

TEST_F(LogFile, IsLookedAtOnceASecondAndKeptOpen) {
  InOwnProcess([] {
    const auto calls = [](const char* call) { return platform::CallCounts()[call]; };
    const auto looks = [&] { return calls("GetFileInformationByHandle") / 2; };
    platform::ResetCallCounts();
    const std::time_t start = std::time(nullptr);
    for (int i = 0; i < 2000; ++i) Write("line");
    WriteUntil([&] { return looks() >= 2; });
    EXPECT_LE(looks(), static_cast<std::size_t>(std::time(nullptr) - start) + 1);
    EXPECT_EQ(calls("CreateFileW"), 1 + looks());
  });
}

// Where the log is when its folder cannot be made: a folder that is there serves whatever its creation failed
// with, a file of that name does not. Without a folder the log lies at the root.
TEST_F(LogFile, AFolderThatIsThereServesWhateverItsCreationFailsWith) {
  const struct {
    const char* what;
    bool folder, file;  // what is called "Logs" before
    DWORD error;        // of the creation; 0: it is not made to fail
    bool primary;
  } cases[] = {{"there", true, false, 0, true},
               {"there, creation denied", true, false, ERROR_ACCESS_DENIED, true},
               {"missing, creation denied", false, false, ERROR_ACCESS_DENIED, false},
               {"a file", false, true, 0, false}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    InOwnProcess([&] {
      const fs::path logs = Primary().parent_path();
      fs::create_directories(logs.parent_path());
      if (c.folder) fs::create_directory(logs);
      if (c.file) std::ofstream(logs) << "in the way";
      const auto write = [] { Write("a"); };
      c.error == 0 ? write() : Failing("CreateDirectoryW", 1, write, c.error);
      EXPECT_EQ(Messages(Primary()), c.primary ? "a;" : "");
      EXPECT_EQ(Messages(platform::GuestRoot() / "tessarine.log"), c.primary ? "" : "a;");
    });
  }
}

// The place is asked for once, and each line tries to open the file there.
TEST_F(LogFile, FallsBackToTheUsersFolderForGoodAndTriesAgainForEachLine) {
  InOwnProcess([] {
    fs::create_directories(Primary().parent_path());
    fs::create_directories(Fallback().parent_path());
    Deny(Primary().parent_path(), true);
    Deny(Fallback().parent_path(), true);
    platform::ResetCallCounts();
    Write("lost");
    Write("lost");
    Deny(Primary().parent_path(), false);
    Write("lost");  // the switch is for good
    Deny(Fallback().parent_path(), false);
    Write("a");
    Write("b");
    EXPECT_EQ(Messages(Fallback()), "a;b;");
    EXPECT_FALSE(fs::exists(Primary()));
    EXPECT_EQ(platform::CallCounts()["GetWindowsDirectoryW"], 1u);
    EXPECT_EQ(platform::CallCounts()["SHGetFolderPathW"], 1u);
  });
}

// When the fallback cannot be opened either, the old file is let go of all the same.
TEST_F(LogFile, AFileThatCannotBeMadeAgainMovesTheLogToTheFallbackOrClosesIt) {
  for (const bool denied : {false, true}) {
    InOwnProcess([denied] {
      Write("first");
      fs::rename(Primary(), Moved());
      Deny(Primary().parent_path(), true);
      fs::create_directories(Fallback().parent_path());
      Deny(Fallback().parent_path(), denied);
      WriteUntil([&] { return denied ? OpenFiles() == 0 : !Messages(Fallback()).empty(); });
      EXPECT_EQ(OpenFiles(), denied ? 0u : 1u);
      Deny(Primary().parent_path(), false);
      Deny(Fallback().parent_path(), false);
    });
  }
}

// A line that is on its way while others replace the file goes where it was going, and the file is closed
// after it: the gate of the platform's calls stops it right before its write.
TEST_F(LogFile, AReplacedFileIsClosedByTheLastLineThatIsOnItsWayThere) {
  InOwnProcess([] {
    bool stopped = false;
    platform::ArmFaultPlan({.before = [&](const std::string& function) {
      if (function != "WriteFile" || std::exchange(stopped, true)) return;
      for (const std::size_t open : {2u, 3u}) {  // the replaced ones stay open as long as this line is out
        fs::rename(Primary(), Moved().concat(std::to_string(open)));
        WriteUntil([] { return fs::exists(Primary()); });
        EXPECT_EQ(OpenFiles(), open);
      }
    }});
    Write("late");
    EXPECT_TRUE(Messages(Moved().concat("2")).ends_with("late;"));
    EXPECT_EQ(OpenFiles(), 1u);
  });
}

TEST_F(LogFile, OutOfMemoryLosesTheLineAlone) {
  InOwnProcess([] {
    fs::create_directories(Primary().parent_path());
    for (const char* call : {"GetWindowsDirectoryW", "CreateFileW", "WriteFile"}) {
      platform::ArmFaultPlan({.before = [&](const std::string& function) {
        if (function == call) throw std::bad_alloc();
      }});
      Write("lost");
      platform::DisarmFaultPlan();
    }
    Write("a");
    EXPECT_EQ(Messages(Primary()), "a;");
    EXPECT_EQ(OpenFiles(), 1u);
  });
}

// A failed step of the access list costs the entry alone; a file that everybody may use stays so.
TEST_F(LogFile, TheEntryForInteractiveUsersIsAddedToAListAndNeverMakesOne) {
  fs::create_directories(Primary().parent_path());
  std::ofstream(Primary()).flush();
  for (const char* call :
       {"GetSecurityInfo", "ConvertStringSidToSidW", "SetEntriesInAclW", "SetSecurityInfo"}) {
    Failing(call, 1, [] { GrantInteractiveUsers(OpenForAccess(Primary()).get()); });
    EXPECT_EQ(InteractiveMask(Primary()), 0) << call;
  }
  for (int time = 0; time < 2; ++time) GrantInteractiveUsers(OpenForAccess(Primary()).get());
  EXPECT_EQ(InteractiveMask(Primary()), readAndWrite);
  EXPECT_EQ(SetSecurityInfo(OpenForAccess(Primary()).get(), SE_FILE_OBJECT, DACL_SECURITY_INFORMATION,
                            nullptr, nullptr, nullptr, nullptr),
            0u);
  GrantInteractiveUsers(OpenForAccess(Primary()).get());
  EXPECT_EQ(InteractiveMask(Primary()), -2);
}

}  // namespace
