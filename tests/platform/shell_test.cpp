// The shell: special folders, silent deletion of trees, and shell links.
#include <windows.h>

#include <shellapi.h>
#include <shlobj.h>

#include "common/handles.h"
#include "support/guest.h"

namespace {

class ShellTest : public GuestTest {
 protected:
  static WideString Path(WideView name) { return Scratch().append(TEXT("\\")).append(name); }

  static UniqueFile Touch(const WideString& path, DWORD share = FILE_SHARE_READ) {
    UniqueFile file(
        CreateFileW(path.c_str(), GENERIC_READ | GENERIC_WRITE, share, nullptr, OPEN_ALWAYS, 0, nullptr));
    EXPECT_TRUE(file) << GetLastError();
    return file;
  }

  static bool Exists(const WideString& path) {
    return GetFileAttributesW(path.c_str()) != INVALID_FILE_ATTRIBUTES;
  }

  // Deletes a list of names, each ended by a NUL.
  static int Delete(WideString list) {
    list += TEXT('\0');
    SHFILEOPSTRUCTW operation{};
    operation.wFunc = FO_DELETE;
    operation.pFrom = list.c_str();
    operation.fFlags = FOF_SILENT | FOF_NOCONFIRMATION | FOF_NOERRORUI;
    return SHFileOperationW(&operation);
  }
};

TEST_F(ShellTest, SpecialFoldersExist) {
  const struct {
    int folder;
    WideView ending;
  } cases[] = {
      {CSIDL_APPDATA, TEXT("\\AppData\\Roaming")},
      {CSIDL_PROGRAMS, TEXT("\\AppData\\Roaming\\Microsoft\\Windows\\Start Menu\\Programs")},
      {CSIDL_LOCAL_APPDATA, TEXT("\\AppData\\Local")},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(WideToUtf8(c.ending));
    WCHAR path[MAX_PATH]{};
    EXPECT_TRUE(SHGetSpecialFolderPathW(nullptr, path, c.folder, TRUE));
    EXPECT_TRUE(WideView(path).ends_with(c.ending)) << WideToUtf8(path);
    EXPECT_TRUE(Exists(path));
    WCHAR same[MAX_PATH]{};
    EXPECT_EQ(SHGetFolderPathW(nullptr, c.folder, nullptr, SHGFP_TYPE_CURRENT, same), S_OK);
    EXPECT_EQ(WideToUtf8(path), WideToUtf8(same));
  }
}

TEST_F(ShellTest, TreesAreDeletedWhole) {
  SHCreateDirectoryExW(nullptr, Path(TEXT("tree\\a\\b")).c_str(), nullptr);
  for (const WideView name : {TEXT("tree\\file"), TEXT("tree\\a\\file"), TEXT("tree\\a\\b\\file"),
                              TEXT("single"), TEXT("other"), TEXT("tree2")}) {
    Touch(Path(name));
  }
  SetFileAttributesW(Path(TEXT("tree\\a\\file")).c_str(), FILE_ATTRIBUTE_READONLY);
  EXPECT_EQ(Delete(Path(TEXT("tree"))), 0);
  EXPECT_FALSE(Exists(Path(TEXT("tree"))));
  EXPECT_TRUE(Exists(Path(TEXT("tree2"))));
  EXPECT_EQ(Delete(Path(TEXT("single")) + TEXT('\0') + Path(TEXT("other"))), 0);
  EXPECT_FALSE(Exists(Path(TEXT("single"))) || Exists(Path(TEXT("other"))));
  EXPECT_NE(Delete(Path(TEXT("none"))), 0);
  EXPECT_NE(Delete(Path(TEXT("none\\none"))), 0);
}

TEST_F(ShellTest, FileInUseStopsTheDeletionOfItsTree) {
  SHCreateDirectoryExW(nullptr, Path(TEXT("tree\\a")).c_str(), nullptr);
  UniqueFile file = Touch(Path(TEXT("tree\\a\\file")), FILE_SHARE_READ | FILE_SHARE_WRITE);
  EXPECT_NE(Delete(Path(TEXT("tree"))), 0);
  EXPECT_TRUE(Exists(Path(TEXT("tree\\a\\file"))));
  file.reset();
  EXPECT_EQ(Delete(Path(TEXT("tree"))), 0);
}

class LinkTest : public ShellTest {
 protected:
  void SetUp() override {
    ShellTest::SetUp();
    EXPECT_EQ(CoInitialize(nullptr), S_OK);
  }
  void TearDown() override {
    CoUninitialize();
    ShellTest::TearDown();
  }

  static ComPtr<IShellLinkW> Create() {
    IShellLinkW* link = nullptr;
    EXPECT_EQ(CoCreateInstance(CLSID_ShellLink, nullptr, CLSCTX_INPROC_SERVER, IID_IShellLinkW,
                               reinterpret_cast<void**>(&link)),
              S_OK);
    return Holding(link);
  }

  template <class Interface>
  static ComPtr<Interface> Holding(Interface* object) {
    ComPtr<Interface> holder;
    holder.reset(object);
    return holder;
  }

  static ComPtr<IPersistFile> FileOf(const ComPtr<IShellLinkW>& link) {
    void* file = nullptr;
    EXPECT_EQ(link->QueryInterface(IID_IPersistFile, &file), S_OK);
    return Holding(static_cast<IPersistFile*>(file));
  }

  static HRESULT Save(const WideString& path) {
    const auto link = Create();
    link->SetPath(Path(TEXT("target.exe")).c_str());
    return FileOf(link)->Save(path.c_str(), TRUE);
  }
};

TEST_F(LinkTest, SavedLinkGivesItsTargetAndDescriptionBack) {
  const WideString target = Path(TEXT("Sch\u00e4ch (Mac).exe")), path = Path(TEXT("link.lnk"));
  EXPECT_EQ(Save(path), S_OK);
  {
    const auto link = Create();
    EXPECT_EQ(link->SetPath(target.c_str()), S_FALSE) << "a target that does not exist";
    Touch(target);
    EXPECT_EQ(link->SetPath(target.c_str()), S_OK);
    EXPECT_EQ(link->SetDescription(TEXT("what it is")), S_OK);
    EXPECT_EQ(FileOf(link)->Save(path.c_str(), TRUE), S_OK) << "over the first one";
  }
  const auto link = Create();
  EXPECT_EQ(FileOf(link)->Load(path.c_str(), 0), S_OK);
  WCHAR text[MAX_PATH]{};
  EXPECT_EQ(link->GetPath(text, MAX_PATH, nullptr, 0), S_OK);
  EXPECT_EQ(WideToUtf8(text), WideToUtf8(target));
  EXPECT_EQ(link->GetDescription(text, MAX_PATH), S_OK);
  EXPECT_EQ(WideToUtf8(text), "what it is");
}

TEST_F(LinkTest, LinksThatCannotBeSavedFail) {
  Touch(Path(TEXT("file")));
  for (const WideView name : {TEXT("a?b.lnk"), TEXT("a|b.lnk"), TEXT("none\\a.lnk"), TEXT("file\\a.lnk")}) {
    EXPECT_TRUE(FAILED(Save(Path(name)))) << WideToUtf8(name);
  }
  const UniqueFile user = Touch(Path(TEXT("used.lnk")));
  EXPECT_TRUE(FAILED(Save(Path(TEXT("used.lnk")))));
}

}  // namespace
