// What passes and withdrawals cost, and what the shell is told.
#include <platform/control.h>

#include "host/guest_view.h"
#include "support/hive.h"
#include "support/module_fixture.h"
#include "sync/sync_pass.h"
#include "sync/withdrawal.h"

namespace {

class MirrorCosts : public ModuleTest {
 protected:
  // The notices to the shell of one pass.
  std::vector<LONG> Sync(const std::vector<host::Application>& applications) {
    Share(applications);
    SyncHostApplications(folder());
    return platform::TakeChangeNotifications();
  }
};

TEST_F(MirrorCosts, TheShellIsToldOnceAndOnlyOfChangesAndAnUnchangedListWritesNoFile) {
  host::Application broken = TestApplication("Broken"), chess = TestApplication("Chess");
  broken.icons.clear();
  const std::vector<LONG> none, associationsChanged{0x08000000};
  EXPECT_EQ(Sync({broken}), none);
  EXPECT_EQ(Sync({broken, chess}), associationsChanged);
  const std::vector<host::Application> three{chess, TestApplication("Go"), TestApplication("Igo")};
  EXPECT_EQ(Sync(three), associationsChanged);
  const std::uint64_t asked = gate().Facts().sends;
  platform::ResetCallCounts();
  EXPECT_EQ(Sync(three), none);
  EXPECT_EQ(gate().Facts().sends - asked, 1u + 3);
  const auto counts = platform::CallCounts();
  for (const char* call :
       {"CopyFileW", "WriteFile", "DeleteFileW", "BeginUpdateResourceW", "CoCreateInstance"})
    EXPECT_FALSE(counts.contains(call)) << call;
  EXPECT_EQ(counts.at("FindFirstFileW"), 1u);
  EXPECT_EQ(Sync({}), none);
}

TEST_F(MirrorCosts, AForeignClassCostsTheWithdrawalOneQuery) {
  constexpr std::size_t foreign = 50;
  for (std::size_t i = 0; i < foreign; ++i)
    hive::PutText(host::classesKey + "\\Foreign." + std::to_string(i), "", "x (Mac)");
  platform::ResetCallCounts();
  WithdrawHostApplications();
  const auto counts = platform::CallCounts();
  EXPECT_EQ(counts.at("SHGetValueW"), foreign + 1);  // and the key of the applications
  EXPECT_EQ(counts.at("RegOpenKeyExW"), 4u);
}

}  // namespace
