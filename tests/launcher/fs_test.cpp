// Folders, paths, shortcuts and deletion through the shell.
#include "launcher/fs.h"

#include <windows.h>

#include <objbase.h>
#include <propsys.h>
#include <shlobj.h>

#include "common/handles.h"
#include "host/guest_view.h"
#include "support/gaps.h"
#include "support/module_fixture.h"
#include "support/raised.h"

namespace {

class FoldersAndShortcuts : public ModuleTest {
 protected:
  // The link at `path`, loaded; null when it cannot be.
  static ComPtr<IShellLinkW> Load(const WideString& path) {
    void* link = nullptr;
    void* file = nullptr;
    if (FAILED(CoCreateInstance(CLSID_ShellLink, nullptr, CLSCTX_INPROC_SERVER, IID_IShellLinkW, &link))) {
      return {};
    }
    ComPtr<IShellLinkW> owned(static_cast<IShellLinkW*>(link));
    if (FAILED(owned->QueryInterface(IID_IPersistFile, &file))) return {};
    const ComPtr<IPersistFile> persist(static_cast<IPersistFile*>(file));
    return SUCCEEDED(persist->Load(path.c_str(), 0)) ? std::move(owned) : ComPtr<IShellLinkW>();
  }

  static WideString Target(const ComPtr<IShellLinkW>& link) {
    WCHAR text[MAX_PATH]{};
    link->GetPath(text, MAX_PATH, nullptr, 0);
    return text;
  }

  static PROPVARIANT Property(const ComPtr<IShellLinkW>& link, DWORD identifier) {
    const PROPERTYKEY key = {{0x9F4C2855, 0x9F79, 0x4B39, {0xA8, 0xD0, 0xE1, 0xD4, 0x2D, 0xE1, 0xD5, 0xF3}},
                             identifier};
    PROPVARIANT value{};
    void* store = nullptr;
    if (SUCCEEDED(link->QueryInterface(IID_IPropertyStore, &store))) {
      const ComPtr<IPropertyStore> owned(static_cast<IPropertyStore*>(store));
      owned->GetValue(key, &value);
    }
    return value;
  }
};

TEST_F(FoldersAndShortcuts, LauncherPathPutsOneSeparator) {
  const struct {
    const char *folder, *name, *path;
  } cases[] = {
      {"C:\\x", "Chess", "C:\\x\\Chess (Mac).exe"},
      {"C:\\x\\", "Chess", "C:\\x\\Chess (Mac).exe"},
      {"C:\\x/", "Chess", "C:\\x/Chess (Mac).exe"},
      {"", "Chess", "Chess (Mac).exe"},
      {"C:\\x", "", "C:\\x\\ (Mac).exe"},
      {"C:\\x", "a/b.c \xC3\xA9", "C:\\x\\a/b.c \xC3\xA9 (Mac).exe"},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(WideToUtf8(LauncherPath(host::Widen(c.folder), host::Widen(c.name))), c.path);
  }
}

TEST_F(FoldersAndShortcuts, AskingForAFolderCreatesIt) {
  RemoveLauncherFolders();
  EXPECT_EQ(WideToUtf8(LauncherFolder()), host::LauncherFolder());
  EXPECT_TRUE(FileIsThere(host::Widen(host::LauncherFolder())));
  EXPECT_FALSE(FileIsThere(host::Widen(host::ShortcutFolder())));
  EXPECT_EQ(WideToUtf8(ShortcutPath(TEXT("Chess (Mac)"))), host::ShortcutFolder() + "\\Chess (Mac).lnk");
  EXPECT_TRUE(FileIsThere(host::Widen(host::ShortcutFolder())));
  EXPECT_EQ(WideToUtf8(ShortcutFolder()), host::ShortcutFolder() + "\\");
}

TEST_F(FoldersAndShortcuts, ShortcutNamesTheLauncherAndStaysUnpinned) {
  CreateLauncherShortcut(TEXT("C:\\scratch\\old.exe"), TEXT("Chess (Mac)"));
  CreateLauncherShortcut(Launcher("Chess"), TEXT("Chess (Mac)"));
  EXPECT_EQ(Files(), "Chess (Mac).lnk\n");
  const ComPtr<IShellLinkW> link = Load(Shortcut("Chess"));
  ASSERT_TRUE(link);
  EXPECT_EQ(Target(link), Launcher("Chess"));
  WCHAR description[128]{};
  link->GetDescription(description, 128);
  EXPECT_EQ(WideToUtf8(description), "Tessarine Shared Application shortcut");
  if (Lacks(Gap::LinkProperties)) return;
  const PROPVARIANT pin = Property(link, 12), exclude = Property(link, 8);
  EXPECT_EQ(pin.vt, VT_UI4);
  EXPECT_EQ(pin.ulVal, 1u);
  EXPECT_EQ(exclude.vt, VT_BOOL);
  EXPECT_EQ(exclude.boolVal, VARIANT_TRUE);
}

TEST_F(FoldersAndShortcuts, ShortcutThatCannotBeSavedRaises) {
  const char* saveFailed = "fs: IPersistFile::Save() failed";
  CreateDirectoryW((ShortcutFolder() + TEXT("Folder (Mac).lnk")).c_str(), nullptr);
  for (const WCHAR* name : {TEXT("Who? (Mac)"), TEXT("No\\Such Folder (Mac)"), TEXT("Folder (Mac)")}) {
    EXPECT_EQ(Raised([&] { CreateLauncherShortcut(Launcher("Chess"), name); }), saveFailed)
        << WideToUtf8(name);
  }
  CoUninitialize();
  EXPECT_EQ(Raised([&] { CreateLauncherShortcut(Launcher("Chess"), TEXT("Chess (Mac)")); }),
            "fs: CoCreateInstance() failed");
  EXPECT_EQ(CoInitialize(nullptr), S_OK);
  EXPECT_EQ(Files(), "");
}

TEST_F(FoldersAndShortcuts, DeletePathTakesFilesAndWholeTrees) {
  const WideString tree = Scratch() + TEXT("\\tree");
  const struct {
    const char* what;
    WideString path;
    const char* raised;
  } cases[] = {
      {"an empty path", {}, "fs: path has zero size"},
      {"a missing path", tree + TEXT("\\none"), "fs: SHFileOperation() failed"},
      {"a file", tree + TEXT("\\file"), ""},
      {"a tree", tree, ""},
      {"a tree with a backslash", tree + TEXT("\\"), ""},
      {"a tree with a slash", tree + TEXT("/"), ""},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    CreateDirectoryW(tree.c_str(), nullptr);
    CreateDirectoryW((tree + TEXT("\\sub")).c_str(), nullptr);
    WriteFileAt(tree + TEXT("\\file"), "x");
    WriteFileAt(tree + TEXT("\\sub\\file"), "x");
    EXPECT_EQ(Raised([&] { DeletePath(c.path); }), c.raised);
    if (*c.raised == 0) {
      EXPECT_FALSE(FileIsThere(c.path));
    }
    EXPECT_EQ(FileIsThere(tree + TEXT("\\sub\\file")), c.path.empty() || c.path.size() > tree.size() + 1);
  }
}

TEST_F(FoldersAndShortcuts, RemovingTheFoldersEndsAtTheFirstFailure) {
  const WideString launchers = host::Widen(host::LauncherFolder()),
                   shortcuts = host::Widen(host::ShortcutFolder());
  WriteFileAt(launchers + TEXT("\\foreign.txt"), "x");
  WriteFileAt(ShortcutPath(TEXT("Chess (Mac)")), "x");
  {
    const UniqueFile held(CreateFileW((launchers + TEXT("\\foreign.txt")).c_str(), GENERIC_READ,
                                      FILE_SHARE_READ, nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL,
                                      nullptr));
    EXPECT_EQ(Raised(RemoveLauncherFolders), "fs: SHFileOperation() failed");
    EXPECT_EQ(Files(), "Chess (Mac).lnk\nforeign.txt\n");
  }
  for (int run = 0; run < 2; ++run) {  // the second time there is nothing
    EXPECT_EQ(Raised(RemoveLauncherFolders), "");
    EXPECT_FALSE(FileIsThere(launchers));
    EXPECT_FALSE(FileIsThere(shortcuts));
  }
}

}  // namespace
