// Where the log is made when its folder cannot be: a folder that is there serves whatever its creation failed
// with, a file of that name does not.
#include <gtest/gtest.h>
#include <platform/control.h>

#include <fstream>

#include "log/log.h"
#include "support/guest.h"
#include "support/own_process.h"

namespace {

namespace fs = std::filesystem;

using LogFolder = GuestTest;

TEST_F(LogFolder, AFolderThatIsThereServesWhateverItsCreationFailsWith) {
  const struct {
    const char* what;
    bool folder, file;  // what is called "Logs" before
    DWORD error;        // of the creation; 0: it is not made to fail
    bool primary;       // where the line must be; without a folder the path is "/tessarine.log"
  } cases[] = {
      {"missing", false, false, 0, true},
      {"there", true, false, 0, true},
      {"there, creation denied", true, false, ERROR_ACCESS_DENIED, true},
      {"missing, creation denied", false, false, ERROR_ACCESS_DENIED, false},
      {"a file", false, true, 0, false},
      {"a file, creation denied", false, true, ERROR_ACCESS_DENIED, false},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    InOwnProcess([&] {
      const fs::path logs = platform::GuestRoot() / "Windows" / "Logs";
      fs::create_directories(logs.parent_path());
      if (c.folder) fs::create_directory(logs);
      if (c.file) std::ofstream(logs) << "in the way";
      if (c.error != 0) {
        platform::FaultPlan plan;
        plan.action = platform::FaultPlan::Action::Fail;
        plan.function = "CreateDirectoryW";
        plan.call = 1;
        plan.error = c.error;
        platform::ArmFaultPlan(plan);
      }
      WriteLog("T", "C", 1, "line");
      EXPECT_EQ(fs::exists(logs / "tessarine.log"), c.primary);
      EXPECT_EQ(fs::exists(platform::GuestRoot() / "tessarine.log"), !c.primary);
    });
  }
}

}  // namespace
