// What a pass costs, what the shell is told, and that the next pass mends whatever a failure has left.
#include "sync/sync_pass.h"

#include <sstream>

#include "host/guest_view.h"
#include "launcher/fs.h"
#include "support/fault_runs.h"
#include "support/hive.h"
#include "support/module_fixture.h"
#include "support/raised.h"

namespace {

const std::vector<LONG> oneNotice{0x08000000};  // associations changed

class SyncPassCosts : public ModuleTest {
 protected:
  void Sync() { SyncHostApplications(folder()); }

  static host::Application Application(const std::string& name, const std::string& type) {
    host::Application application = TestApplication(name);
    application.documentTypes = {type};
    application.defaultTypes = {type};
    application.urlSchemes = {"x-" + type};
    return application;
  }
};

TEST_F(SyncPassCosts, AnUnchangedListAsksOnceAndWritesNoFile) {
  Share({Application("Chess", "pgn"), Application("Go", "sgf"), Application("Shogi", "kif")});
  Sync();
  const std::uint64_t before = gate().Facts().sends;
  EXPECT_EQ(before, 1u + 3 * 2);
  EXPECT_EQ(platform::TakeChangeNotifications(), oneNotice);
  platform::ResetCallCounts();
  Sync();
  const auto counts = platform::CallCounts();
  EXPECT_EQ(gate().Facts().sends - before, 1u + 3);
  EXPECT_EQ(platform::TakeChangeNotifications(), std::vector<LONG>());
  for (const char* call : {"CopyFileW", "CreateFileW", "WriteFile", "DeleteFileW", "BeginUpdateResourceW",
                           "IPersistFile::Save", "CoCreateInstance"}) {
    EXPECT_FALSE(counts.contains(call)) << call;
  }
  EXPECT_EQ(counts.at("FindFirstFileW"), 1u);
  EXPECT_EQ(counts.at("FindNextFileW"), 3u);
}

TEST_F(SyncPassCosts, TheShellIsToldOnceAndOnlyOfChanges) {
  host::Application broken = Application("Broken", "brk");
  broken.icons.clear();
  Share({broken});
  Sync();
  EXPECT_EQ(platform::TakeChangeNotifications(), std::vector<LONG>());
  Share({broken, Application("Chess", "pgn")});
  Sync();
  EXPECT_EQ(platform::TakeChangeNotifications(), oneNotice);
  Share({});
  Sync();
  EXPECT_EQ(platform::TakeChangeNotifications(), std::vector<LONG>());
}

TEST_F(SyncPassCosts, WritesNowhereElse) {
  const auto others = [] {
    std::string text, line;
    bool ours = false;
    std::istringstream in(platform::SaveRegistry());
    while (std::getline(in, line)) {
      if (line.starts_with("[")) {
        ours = false;
        for (const char* key :
             {"Software\\Classes", "Software\\RegisteredApplications", "Software\\Tessarine"}) {
          ours |= line.starts_with(std::string("[HKEY_CURRENT_USER\\") + key);
        }
      }
      if (!ours) text += line + "\n";
    }
    return text;
  };
  const std::string before = others();
  Share({Application("Chess", "pgn")});
  Sync();
  EXPECT_EQ(others(), before);
}

}  // namespace
