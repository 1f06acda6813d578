// The folders of a user who has not even the special folders above them; a guest that runs keeps those open.
#include <shlobj.h>

#include "launcher/fs.h"
#include "support/module_fixture.h"

namespace {

class MissingFolders : public ModuleTest {
 protected:
  static WideString Above(const WideString& path) { return path.substr(0, path.rfind(TEXT('\\'))); }
};

// The programs' folder lies below that of the data.
TEST_F(MissingFolders, ComeIntoBeingWhenTheyAreAskedFor) {
  const WideString data = Above(Above(folder())), shortcuts = Above(Shortcut("Chess")),
                   programs = Above(shortcuts);
  DeletePath(data);
  EXPECT_EQ(SpecialFolderPath(CSIDL_APPDATA), data);
  EXPECT_TRUE(FileIsThere(data));
  EXPECT_EQ(LauncherFolder(), folder());
  EXPECT_TRUE(FileIsThere(folder()));
  EXPECT_FALSE(FileIsThere(programs));
  EXPECT_EQ(ShortcutPath(TEXT("Chess (Mac)")), Shortcut("Chess"));
  EXPECT_TRUE(FileIsThere(shortcuts));
  EXPECT_EQ(ShortcutFolder(), shortcuts + TEXT("\\"));
}

}  // namespace
