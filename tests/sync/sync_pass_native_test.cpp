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

// A failure costs at most what it hits: the next pass ends as if it had not been.
TEST_F(SyncPassCosts, TheNextPassMendsAnySingleFailure) {
  const auto clear = [this] {
    RemoveLauncherFolders();
    platform::ResetRegistry();
    InstallTools();
    LauncherFolder();
  };
  Share({Application("Chess", "pgn")});
  const std::vector<std::string> calls = CallsOf([this] { Sync(); });
  const std::string files = Files(), registry = hive::Text(), resources = ResourceChanges(Launcher("Chess"));
  for (std::size_t n = 1; n <= calls.size(); ++n) {
    // Not failures but other answers: a name that comes out empty, an older system.
    if (calls[n - 1] == "MultiByteToWideChar" || calls[n - 1] == "VerifyVersionInfoW") continue;
    SCOPED_TRACE(std::to_string(n) + " " + calls[n - 1]);
    clear();
    WithFault(n, [this] { Raised([this] { Sync(); }); });
    EXPECT_EQ(Raised([this] { Sync(); }), "");
    ASSERT_EQ(Files(), files);
    ASSERT_EQ(hive::Text(), registry);
    ASSERT_EQ(ResourceChanges(Launcher("Chess")), resources);
  }
}

}  // namespace
