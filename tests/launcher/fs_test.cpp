// Folders, paths, shortcuts and deletion through the shell.
#include "launcher/fs.h"

#include "guest/launcher_view.h"
#include "support/module_fixture.h"

namespace {

class FoldersAndShortcuts : public ModuleTest {
 protected:
  static WideString Above(const WideString& path) { return path.substr(0, path.rfind(TEXT('\\'))); }
};

TEST_F(FoldersAndShortcuts, ShortcutNamesTheLauncherAndStaysUnpinned) {
  CreateLauncherShortcut(TEXT("C:\\scratch\\old.exe"), TEXT("Chess (Mac)"));
  CreateLauncherShortcut(Launcher("Chess"), TEXT("Chess (Mac)"));
  EXPECT_EQ(Files(), "Chess (Mac).lnk\n");
  const auto link = host::ReadShortcut(WideToUtf8(Shortcut("Chess")));
  ASSERT_TRUE(link);
  EXPECT_EQ(link->target, WideToUtf8(Launcher("Chess")));
  EXPECT_EQ(link->description, "Tessarine Shared Application shortcut");
  EXPECT_EQ(link->staysUnpinned && link->staysUnannounced, !Lacks(Gap::LinkProperties));
}

TEST_F(FoldersAndShortcuts, DeletePathTakesWholeTrees) {
  const WideString tree = Scratch() + TEXT("\\tree");
  EXPECT_EQ(Raised([] { DeletePath({}); }), "fs: path has zero size");
  for (const WCHAR* ending : {TEXT(""), TEXT("\\"), TEXT("/")}) {
    CreateDirectoryW(tree.c_str(), nullptr);
    WriteFileAt(tree + TEXT("\\file"), "x");
    EXPECT_EQ(Raised([&] { DeletePath(tree + ending); }), "");
    EXPECT_FALSE(FileIsThere(tree));
    EXPECT_EQ(Raised([&] { DeletePath(tree + ending); }), "fs: SHFileOperation() failed");
  }
}

TEST_F(FoldersAndShortcuts, RemovingTheFoldersEndsAtTheFirstFailure) {
  const WideString foreign = folder() + TEXT("\\foreign.txt");
  WriteFileAt(foreign, "x");
  WriteFileAt(ShortcutPath(TEXT("Chess (Mac)")), "x");
  UniqueFile held(CreateFileW(foreign.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING,
                              FILE_ATTRIBUTE_NORMAL, nullptr));
  EXPECT_EQ(Raised(RemoveLauncherFolders), "fs: SHFileOperation() failed");
  EXPECT_EQ(Files(), "Chess (Mac).lnk\nforeign.txt\n");
  held.reset();
  for (int run = 0; run < 2; ++run) {  // the second time there is nothing
    EXPECT_EQ(Raised(RemoveLauncherFolders), "");
    EXPECT_FALSE(FileIsThere(folder()));
    EXPECT_FALSE(FileIsThere(Above(Shortcut("Chess"))));
  }
}

}  // namespace
