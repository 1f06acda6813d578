// Creation and check of launchers, with what each failure leaves behind.
#include "launcher/mainfo.h"

#include <windows.h>

#include <shlwapi.h>

#include "common/handles.h"
#include "launcher/fs.h"
#include "support/gaps.h"
#include "support/hive.h"
#include "support/module_fixture.h"
#include "support/raised.h"

namespace {

constexpr WORD rcData = 10;
constexpr std::uint32_t getIcons = 103;
const std::string chessKey = "HKCU\\Software\\Classes\\Applications\\Chess (Mac).exe";

class LauncherCreation : public ModuleTest {
 protected:
  void SetUp() override {
    ModuleTest::SetUp();
    Share({TestApplication("Chess")});
  }

  std::string Create(const MacAppInfo& app, bool skipIfCurrent = true) {
    return Raised([&] { CreateLauncher(folder(), app, skipIfCurrent); });
  }

  // What of Chess is there: launcher, key, shortcut.
  std::string Parts() const {
    std::string parts;
    if (FileIsThere(Launcher("Chess"))) parts += "launcher ";
    if (hive::Has(chessKey)) parts += "key ";
    if (FileIsThere(Shortcut("Chess"))) parts += "shortcut ";
    return parts;
  }

  void CopyTemplate() const {
    EXPECT_TRUE(CopyFileW(TemplateFile().c_str(), Launcher("Chess").c_str(), FALSE));
  }
};

TEST_F(LauncherCreation, GivesTheTemplateItsIdentity) {
  EXPECT_TRUE(CreateLauncher(folder(), Info("Chess"), true));
  EXPECT_EQ(Parts(), "launcher key shortcut ");
  const WideString launcher = Launcher("Chess");
  EXPECT_EQ(
      ResourceChanges(launcher),
      "+3/449/1024 1128\n+10/259/0 12\n+10/260/0 22\n+10/57005/0 14\n+14/448/1024 20\n+16/1/1024 700\n");
  EXPECT_EQ(ResourceData(launcher, rcData, 260, 0), host::Utf16Bytes("test.Chess"));
  EXPECT_EQ(ResourceData(launcher, rcData, 259, 0), host::Utf16Bytes("Chess"));
  EXPECT_EQ(ResourceData(launcher, rcData, 57005, 0), std::string("mice was here\0", 14));
  EXPECT_EQ(hive::Value(chessKey, ""), "\"\"");
  EXPECT_EQ(hive::Value(chessKey + "\\shell\\open\\command", ""),
            "\"\"" + WideToUtf8(launcher) + "\" \"%1\"\"");
}

TEST_F(LauncherCreation, NamesAreUsedAsTheyCome) {
  const std::string name = "Schach \xE6\xA3\x8B & \xF0\x9F\x8E\xB2.exe";
  Share({TestApplication(name)});
  EXPECT_TRUE(CreateLauncher(folder(), Info(name), true));
  EXPECT_EQ(ResourceData(Launcher(name), rcData, 259, 0), host::Utf16Bytes(name));
  EXPECT_EQ(Files(), name + " (Mac).exe\n" + name + " (Mac).lnk\n");
}

TEST_F(LauncherCreation, OnlyResourcesOfTheSameLanguageAreReplaced) {
  CopyTemplate();
  const WideString launcher = Launcher("Chess"), before = Scratch() + TEXT("\\before.exe");
  PutResource(launcher, rcData, 260, 0, "old");
  PutResource(launcher, rcData, 260, 0x0409, "stays");
  PutResource(launcher, 14, 448, 0, "stays too");
  PutResource(launcher, 16, 1, 0x0400, "old");
  CopyFileW(launcher.c_str(), before.c_str(), FALSE);
  UpdateLauncherResources(launcher, Info("Chess"), true);
  EXPECT_EQ(ResourceChanges(launcher, before),
            "+3/449/1024 1128\n+10/259/0 12\n-10/260/0 3\n+10/260/0 22\n+10/57005/0 14\n+14/448/1024 20\n"
            "-16/1/1024 3\n+16/1/1024 700\n");
}

// The checksums were taken once; every build writes these bytes, whatever updates the file.
TEST_F(LauncherCreation, EveryBuildWritesTheSameBytes) {
  ASSERT_TRUE(CreateLauncher(folder(), Info("Chess"), true));
  const struct {
    WORD type, name, language;
    std::uint64_t sum;  // FNV-1a
  } resources[] = {
      {rcData, 260, 0, 0x5C10B6DC0920122B},  {rcData, 259, 0, 0xD08760945E6B3073},
      {16, 1, 0x0400, 0xC93B4571B586574C},   {3, 449, 0x0400, 0xA5F9F2C41C091558},
      {14, 448, 0x0400, 0x3E131DAF9AE268F6}, {rcData, 57005, 0, 0x6EAF4DE8CD544D90},
  };
  for (const auto& resource : resources) {
    std::uint64_t sum = 0xCBF29CE484222325;
    for (const char byte : ResourceData(Launcher("Chess"), resource.type, resource.name, resource.language)) {
      sum = (sum ^ static_cast<unsigned char>(byte)) * 0x100000001B3;
    }
    EXPECT_EQ(sum, resource.sum) << resource.type << "/" << resource.name;
  }
}

TEST_F(LauncherCreation, AValidLauncherIsLeftAlone) {
  CopyTemplate();
  PutResource(Launcher("Chess"), rcData, 260, 0, host::Utf16Bytes("another.identifier"));
  const WideString before = Scratch() + TEXT("\\before.exe");
  CopyFileW(Launcher("Chess").c_str(), before.c_str(), FALSE);
  EXPECT_FALSE(CreateLauncher(folder(), Info("Chess"), true));
  EXPECT_EQ(ResourceChanges(Launcher("Chess"), before), "");
  EXPECT_EQ(gate().Facts().sends, 0u);
  EXPECT_EQ(Parts(), "launcher ");
  EXPECT_TRUE(CreateLauncher(folder(), Info("Chess"), false));
  EXPECT_EQ(ResourceData(Launcher("Chess"), rcData, 260, 0), host::Utf16Bytes("test.Chess"));
}

// The launcher comes with a key and a shortcut, so that its removal shows.
TEST_F(LauncherCreation, ALauncherWithoutIdentifierIsRemovedAndBuiltAnew) {
  const struct {
    const char* what;
    std::string resource;  // number 260; empty: none, as in the template
    bool valid;
  } cases[] = {
      {"no identifier", "", false},
      {"an empty identifier", std::string(2, '\0'), false},
      {"text behind a NUL", std::string("\0\0x\0\0\0", 6), false},
      {"half a character", "x", false},
      {"one character without NUL", std::string("x\0", 2), true},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    ASSERT_TRUE(CreateLauncher(folder(), Info("Chess"), false));
    if (c.resource.empty()) {
      CopyTemplate();
    } else {
      PutResource(Launcher("Chess"), rcData, 260, 0, c.resource);
    }
    EXPECT_EQ(HasValidLauncher(folder(), Info("Chess")), c.valid);
    EXPECT_EQ(Parts(), c.valid ? "launcher key shortcut " : "");
    EXPECT_EQ(CreateLauncher(folder(), Info("Chess"), true), !c.valid);
    EXPECT_EQ(Parts(), "launcher key shortcut ");
  }
}

TEST_F(LauncherCreation, ALauncherThatCannotBeLoadedIsOverwritten) {
  EXPECT_FALSE(HasValidLauncher(folder(), Info("Chess")));
  WriteFileAt(Launcher("Chess"), "no program");
  EXPECT_FALSE(HasValidLauncher(folder(), Info("Chess")));
  EXPECT_EQ(Parts(), "launcher ");
  EXPECT_TRUE(CreateLauncher(folder(), Info("Chess"), true));
  EXPECT_TRUE(HasValidLauncher(folder(), Info("Chess")));
}

TEST_F(LauncherCreation, AnEmptyIdentifierMakesNoValidLauncher) {
  ReplyWith(getIcons, Items().Add(2, TestBitmap(16, 16)).bytes());
  const MacAppInfo app{TEXT(""), TEXT("Chess")};
  EXPECT_TRUE(CreateLauncher(folder(), app, true));
  EXPECT_EQ(ResourceData(Launcher("Chess"), rcData, 260, 0), std::string(2, '\0'));
  EXPECT_FALSE(HasValidLauncher(folder(), app));
}

TEST_F(LauncherCreation, AFailureInsideTheUpdateTakesTheLauncherAway) {
  std::vector<std::byte> refused = TestBitmap(16, 16);
  refused[28] = std::byte{24};
  const struct {
    const char* what;
    std::vector<std::byte> icons;
    const char* raised;
  } cases[] = {
      {"no icons", {}, "mainfo: resop: icon group list is empty"},
      {"refused icons", Items().Add(2, refused).Add(2, {}).bytes(),
       "mainfo: resop: icon group list is empty"},
      {"a text", Items().Text(3, "x").bytes(), "mainfo: mainfo: type WMA_Command::bbt_bitmap expected"},
      {"an item past the end", {std::byte{0}}, "mainfo: bit_box: item exceeds its bit_box"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    ReplyWith(getIcons, c.icons);
    EXPECT_EQ(Create(Info("Chess")), c.raised);
    EXPECT_EQ(Parts(), "");
  }
}

TEST_F(LauncherCreation, TheHostsFailureIsToldWhole) {
  EXPECT_EQ(Create(Info("Unknown")), "mainfo: mainfo: command failed");
  gate().FailNext({.request = host::sendCommand, .systemError = ERROR_GEN_FAILURE});
  EXPECT_EQ(Create(Info("Chess")), "mainfo: mainfo: ioctl() returned no data");
  gate().SetPresent(false);
  EXPECT_EQ(Create(Info("Chess")), "mainfo: dtool: Can't open tool device driver");
  EXPECT_EQ(Files(), "");

  CopyTemplate();
  EXPECT_NE(Raised([&] { UpdateLauncherResources(Launcher("Chess"), Info("Chess"), false); }), "");
  EXPECT_EQ(ResourceChanges(Launcher("Chess")), "");
}

TEST_F(LauncherCreation, AFileThatCannotBeUpdatedOrCommittedStays) {
  EXPECT_EQ(Raised([&] { UpdateLauncherResources(Launcher("Chess"), Info("Chess"), true); }),
            "mainfo: BeginUpdateResource() failed");
  CopyTemplate();
  {
    const UniqueModule running(LoadLibraryW(Launcher("Chess").c_str()));
    ASSERT_TRUE(running);
    EXPECT_EQ(Raised([&] { UpdateLauncherResources(Launcher("Chess"), Info("Chess"), true); }),
              Lacks(Gap::LoadedUpdate) ? "mainfo: BeginUpdateResource() failed"
                                       : "mainfo: EndUpdateResource() failed");
  }
  EXPECT_EQ(ResourceChanges(Launcher("Chess")), "");
}

TEST_F(LauncherCreation, ALauncherInUseCannotBeOverwritten) {
  ASSERT_TRUE(CreateLauncher(folder(), Info("Chess"), true));
  const UniqueFile held(CreateFileW(Launcher("Chess").c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr,
                                    OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
  EXPECT_EQ(Create(Info("Chess"), false), "mainfo: write to file failed");
  EXPECT_EQ(Parts(), "launcher key shortcut ");
}

TEST_F(LauncherCreation, AFailedShortcutLeavesTheRest) {
  EXPECT_TRUE(CreateDirectoryW((ShortcutFolder() + TEXT("Chess (Mac).lnk")).c_str(), nullptr));
  EXPECT_EQ(Create(Info("Chess")), "fs: IPersistFile::Save() failed");
  EXPECT_TRUE(HasValidLauncher(folder(), Info("Chess")));
  EXPECT_TRUE(hive::Has(chessKey));
}

class InstallLocation : public LauncherCreation {
 protected:
  static constexpr const WCHAR* nativeKey = TEXT("SOFTWARE\\Tessarine\\Tessarine Tools");
  static constexpr const WCHAR* narrowKey = TEXT("SOFTWARE\\Wow6432Node\\Tessarine\\Tessarine Tools");

  void TearDown() override {
    SHDeleteKeyW(HKEY_LOCAL_MACHINE, TEXT("SOFTWARE\\Wow6432Node\\Tessarine"));
    LauncherCreation::TearDown();
  }

  static void Put(const WCHAR* key, DWORD type, WideString units) {
    EXPECT_EQ(SHSetValueW(HKEY_LOCAL_MACHINE, key, TEXT("InstallLocation"), type, units.data(),
                          static_cast<DWORD>(units.size() * sizeof(WCHAR))),
              ERROR_SUCCESS);
  }
};

TEST_F(InstallLocation, IsAShortTextOrUnknown) {
  const struct {
    const char* what;
    DWORD type;
    WideString units, location;
  } cases[] = {
      {"text", REG_SZ, WideString(TEXT("D:\\Tools\0"), 9), TEXT("D:\\Tools")},
      {"text without NUL", REG_SZ, TEXT("D:\\Tools/"), TEXT("D:\\Tools/")},
      {"text with a NUL inside", REG_SZ, WideString(TEXT("D:\0x\0"), 5), TEXT("D:")},
      {"expandable text", REG_EXPAND_SZ, WideString(TEXT("D:\0"), 3), {}},
      {"empty text", REG_SZ, WideString(1, 0), {}},
      {"260 units", REG_SZ, WideString(259, TEXT('x')) + WCHAR{0}, WideString(259, TEXT('x'))},
      {"261 units", REG_SZ, WideString(260, TEXT('x')) + WCHAR{0}, {}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    Put(nativeKey, c.type, c.units);
    EXPECT_EQ(ToolsInstallLocation(), c.location);
  }
}

TEST_F(InstallLocation, ComesFromThe32BitViewWhereTheNativeOneHasNone) {
  Put(narrowKey, REG_SZ, TEXT("D:\\Narrow"));
  EXPECT_EQ(ToolsInstallLocation(), TEXT("C:\\Program Files\\Tessarine\\Tools"));
  Put(nativeKey, REG_DWORD, TEXT("xy"));
  EXPECT_EQ(ToolsInstallLocation(), TEXT("D:\\Narrow"));
  SHDeleteKeyW(HKEY_LOCAL_MACHINE, nativeKey);
  EXPECT_EQ(ToolsInstallLocation(), TEXT("D:\\Narrow"));
  SHDeleteKeyW(HKEY_LOCAL_MACHINE, narrowKey);
  EXPECT_EQ(ToolsInstallLocation(), TEXT(""));
  EXPECT_EQ(Create(Info("Chess")), "mainfo: write to file failed");
  EXPECT_EQ(Files(), "");
}

TEST_F(InstallLocation, OnlyABackslashEndsIt) {
  for (const WCHAR* ending : {TEXT(""), TEXT("\\"), TEXT("/")}) {
    Put(nativeKey, REG_SZ, TEXT("C:\\Program Files\\Tessarine\\Tools") + WideString(ending));
    EXPECT_EQ(Create(Info("Chess"), false), "") << WideToUtf8(ending);
  }
}

TEST_F(LauncherCreation, FilesAndFoldersExist) {
  CopyTemplate();
  const UINT mode = GetErrorMode();
  EXPECT_TRUE(FileExists(Launcher("Chess")));
  EXPECT_TRUE(FileExists(folder()));
  EXPECT_FALSE(FileExists(Launcher("Draughts")));
  EXPECT_EQ(GetErrorMode(), mode);
}

}  // namespace
