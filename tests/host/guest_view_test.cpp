// The host's view of a guest whose launchers are not as they should be.
#include "host/guest_view.h"

#include "launcher/mainfo.h"
#include "support/module_fixture.h"

namespace {

class GuestView : public ModuleTest {};

TEST_F(GuestView, ALauncherThatIsCutOffHasNoResources) {
  Share({TestApplication("Chess")});
  ASSERT_TRUE(CreateLauncher(folder(), Info("Chess"), true));
  const auto read = [&] {
    const auto launchers = host::TakeSnapshot().launchers;
    EXPECT_EQ(launchers.size(), 1u);
    return launchers.begin()->second;
  };
  EXPECT_EQ(read().bundleId, "test.Chess");
  const std::string whole = *host::ReadGuestFile(WideToUtf8(Launcher("Chess")));
  for (const std::size_t size :
       {whole.size() - 1, whole.size() / 2, std::size_t{0x100}, std::size_t{0x3F}, std::size_t{0}}) {
    WriteFileAt(Launcher("Chess"), whole.substr(0, size));
    EXPECT_EQ(read(), host::Launcher{}) << size << " of " << whole.size() << " bytes";
  }
}

}  // namespace
