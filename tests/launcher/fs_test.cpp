// Folders, paths, shortcuts and deletion through the shell.
#include "launcher/fs.h"

#include <windows.h>

#include <objbase.h>
#include <propsys.h>
#include <shlobj.h>

#include "support/module_fixture.h"

namespace {

class FoldersAndShortcuts : public ModuleTest {
 protected:
  template <class Interface>
  static ComPtr<Interface> Query(IUnknown* from, const IID& iid) {
    void* queried = nullptr;
    EXPECT_GE(from->QueryInterface(iid, &queried), 0);
    return ComPtr<Interface>(static_cast<Interface*>(queried));
  }

  // The link at `path`, loaded.
  static ComPtr<IShellLinkW> Load(const WideString& path) {
    void* made = nullptr;
    EXPECT_GE(CoCreateInstance(CLSID_ShellLink, nullptr, CLSCTX_INPROC_SERVER, IID_IShellLinkW, &made), 0);
    ComPtr<IShellLinkW> link(static_cast<IShellLinkW*>(made));
    EXPECT_GE(Query<IPersistFile>(link.get(), IID_IPersistFile)->Load(path.c_str(), 0), 0);
    return link;
  }

  static PROPVARIANT Property(const ComPtr<IShellLinkW>& link, DWORD identifier) {
    PROPVARIANT value{};
    Query<IPropertyStore>(link.get(), IID_IPropertyStore)
        ->GetValue(
            {{0x9F4C2855, 0x9F79, 0x4B39, {0xA8, 0xD0, 0xE1, 0xD4, 0x2D, 0xE1, 0xD5, 0xF3}}, identifier},
            &value);
    return value;
  }

  static WideString Above(const WideString& path) { return path.substr(0, path.rfind(TEXT('\\'))); }
};

TEST_F(FoldersAndShortcuts, ShortcutNamesTheLauncherAndStaysUnpinned) {
  CreateLauncherShortcut(TEXT("C:\\scratch\\old.exe"), TEXT("Chess (Mac)"));
  CreateLauncherShortcut(Launcher("Chess"), TEXT("Chess (Mac)"));
  EXPECT_EQ(Files(), "Chess (Mac).lnk\n");
  const ComPtr<IShellLinkW> link = Load(Shortcut("Chess"));
  WCHAR target[MAX_PATH]{}, description[128]{};
  link->GetPath(target, MAX_PATH, nullptr, 0);
  link->GetDescription(description, 128);
  EXPECT_EQ(target, Launcher("Chess"));
  EXPECT_EQ(WideToUtf8(description), "Tessarine Shared Application shortcut");
  const PROPVARIANT pin = Property(link, 12), exclude = Property(link, 8);
  EXPECT_EQ(pin.vt == VT_UI4 && pin.ulVal == 1, !Lacks(Gap::LinkProperties));
  EXPECT_EQ(exclude.vt == VT_BOOL && exclude.boolVal == VARIANT_TRUE, !Lacks(Gap::LinkProperties));
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
