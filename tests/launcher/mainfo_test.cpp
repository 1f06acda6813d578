// Creation and check of launchers: their resources to the byte, which ones are kept, and where the template
// lies.
#include "launcher/mainfo.h"

#include "common/windows_version.h"
#include "launcher/bmp2ico.h"
#include "support/module_fixture.h"

namespace {

using host::Bytes;

constexpr WORD rcData = 10;
constexpr std::uint32_t getIcons = 103;
const std::string toolsKey = "HKLM\\SOFTWARE\\Tessarine\\Tessarine Tools";
const std::string narrowKey = "HKLM\\SOFTWARE\\Wow6432Node\\Tessarine\\Tessarine Tools";

std::string Characters(const Bytes& bytes) {
  return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

class LauncherCreation : public ModuleTest {
 protected:
  void SetUp() override {
    ModuleTest::SetUp();
    Share({TestApplication("Chess")});
  }

  // "built", "kept" or what is raised.
  std::string Create(const MacAppInfo& app, bool skipIfCurrent = true) {
    bool built = false;
    const std::string raised = Raised([&] { built = CreateLauncher(folder(), app, skipIfCurrent); });
    return !raised.empty() ? raised : built ? "built" : "kept";
  }

  std::string Update(bool deleteOnFailure) {
    return Raised([&] { UpdateLauncherResources(Launcher("Chess"), Info("Chess"), deleteOnFailure); });
  }

  void CopyTemplate() const {
    EXPECT_TRUE(CopyFileW(TemplateFile().c_str(), Launcher("Chess").c_str(), FALSE));
  }
};

TEST_F(LauncherCreation, GivesTheTemplateItsIdentityAndItsName) {
  const std::string name = "Schach \xE6\xA3\x8B & \xF0\x9F\x8E\xB2.exe";  // used as it comes
  Share({TestApplication(name)});
  EXPECT_EQ(Create(Info(name)), "built");
  const WideString launcher = Launcher(name);
  EXPECT_EQ(ResourcesOf(launcher).size(), ResourcesOf(TemplateFile()).size() + 6);
  EXPECT_EQ(ResourceData(launcher, rcData, 260, 0), host::Utf16Bytes("test." + name));
  EXPECT_EQ(ResourceData(launcher, rcData, 259, 0), host::Utf16Bytes(name));
  EXPECT_EQ(ResourceData(launcher, rcData, 57005, 0), std::string("mice was here\0", 14));
  EXPECT_EQ(Parts(name), "launcher key shortcut ");
  EXPECT_EQ(hive::Value(hive::applications + name + " (Mac).exe\\shell\\open\\command", ""),
            "\"\"" + WideToUtf8(launcher) + "\" \"%1\"\"");
}

TEST_F(LauncherCreation, TheIconGroupLeavesGapsForWhatIsRefused) {
  const Bytes small = TestBitmap(16, 16), large = TestBitmap(256, 256), refused(100);
  ReplyWith(getIcons, Items().Add(2, small).Add(2, refused).Add(2, large).bytes());
  EXPECT_EQ(Create(Info("Chess")), "built");
  Bytes group;
  for (const std::uint32_t field : {0u, 1u, 2u,                             // two icons
                                    0x1010u, 0u, 1u, 32u, 1128u, 0u, 449u,  // 16 by 16
                                    0u, 0u, 1u, 32u, 0x2028u, 4u, 451u}) {  // 256 by 256, 270,376 bytes
    host::PutU16(group, field);
  }
  EXPECT_EQ(ResourceData(Launcher("Chess"), 14, 448, 0x0400), Characters(group));
  // Systems that know no alpha in icons get a mask.
  EXPECT_EQ(ResourceData(Launcher("Chess"), 3, 451, 0x0400),
            Characters(BitmapToIcon(large, !IsWindowsVersionOrLater(5, 1))));
  ReplyWith(getIcons, Items().Add(2, refused).bytes());
  EXPECT_EQ(Create(Info("Chess"), false), "mainfo: resop: icon group list is empty");
}

// Length, value length, type, key and value of a block of version information.
void PutBlock(Bytes& bytes, std::initializer_list<std::uint32_t> fields,
              std::initializer_list<std::string> texts) {
  for (const std::uint32_t field : fields) host::PutU16(bytes, field);
  for (const std::string& text : texts) {
    for (const char c : text) host::PutU16(bytes, static_cast<unsigned char>(c));
    host::PutU16(bytes, 0);
    bytes.resize((bytes.size() + 3) / 4 * 4);
  }
}

TEST_F(LauncherCreation, TheVersionInformationNamesTheApplication) {
  const struct {
    const char* name;
    std::uint32_t characters, block;  // of the description
  } cases[] = {{"Chess", 12, 64}, {"Go", 9, 60}, {"NineChars", 16, 72}};
  for (const auto& c : cases) {
    Bytes expected;
    PutBlock(expected, {636 + c.block, 52, 0}, {"VS_VERSION_INFO"});
    for (const std::uint32_t field :
         {0xFEEF04BDu, 0x10000u, 0x10000u, 0u, 0x10000u, 0u, 0x20u, 0x20u, 4u, 1u, 0u, 0u, 0u}) {
      host::PutU32(expected, field);
    }
    PutBlock(expected, {476 + c.block, 0, 1}, {"StringFileInfo"});
    PutBlock(expected, {440 + c.block, 0, 1}, {"040904B0"});
    PutBlock(expected, {84, 29, 1}, {"Comments", "Tessarine Shared Application"});
    PutBlock(expected, {112, 39, 1}, {"CompanyName", "Tessarine Software International, Inc."});
    PutBlock(expected, {c.block, c.characters, 1}, {"FileDescription", std::string(c.name) + " (Mac)"});
    PutBlock(expected, {48, 8, 1}, {"FileVersion", "1.0.0.0"});
    PutBlock(expected, {80, 23, 1}, {"ProductName", "Tessarine Tools Center"});
    PutBlock(expected, {92, 29, 1}, {"SpecialBuild", "Tessarine Shared Application"});
    PutBlock(expected, {68, 0, 1}, {"VarFileInfo"});
    PutBlock(expected, {36, 4, 0}, {"Translation"});
    host::PutU32(expected, 0x04B00409);
    ReplyWith(getIcons, Items().Add(2, TestBitmap(1, 1)).bytes());
    EXPECT_EQ(Create(Info(c.name)), "built");
    EXPECT_EQ(ResourceData(Launcher(c.name), 16, 1, 0x0400), Characters(expected)) << c.name;
  }
}

// What is there beside an unusable launcher shows that it is removed, and what is missing that it is removed
// quietly.
TEST_F(LauncherCreation, TheIdentifierAloneDecidesWhetherALauncherIsKept) {
  const struct {
    const char* what;
    std::string resource;  // number 260; empty: none, as in the template
    bool valid, key, shortcut;
  } cases[] = {{"none", "", false, true, true},
               {"none, and no key", "", false, false, true},
               {"none, and no shortcut", "", false, true, false},
               {"an empty one", std::string(2, '\0'), false, true, true},
               {"text behind a NUL", std::string("\0\0x\0", 4), false, true, true},
               {"half a character", "x", false, true, true},
               {"a character whose low half is 0", std::string("\0x", 2), true, false, false},
               {"another's", host::Utf16Bytes("another.identifier"), true, false, true}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    ASSERT_EQ(Create(Info("Chess"), false), "built");
    CopyTemplate();
    if (!c.resource.empty()) PutResource(Launcher("Chess"), rcData, 260, 0, c.resource);
    if (!c.key) hive::Drop(hive::applications + "Chess (Mac).exe");
    if (!c.shortcut) DeleteFileW(Shortcut("Chess").c_str());
    const std::string parts = Parts("Chess");
    const host::Resources resources = ResourcesOf(Launcher("Chess"));
    const std::uint64_t asked = gate().Facts().sends;
    EXPECT_EQ(HasValidLauncher(folder(), Info("Chess")), c.valid);
    EXPECT_EQ(Parts("Chess"), c.valid ? parts : "");
    EXPECT_EQ(Create(Info("Chess")), c.valid ? "kept" : "built");
    EXPECT_EQ(Parts("Chess"), c.valid ? parts : "launcher key shortcut ");
    EXPECT_EQ(ResourcesOf(Launcher("Chess")) == resources, c.valid);
    EXPECT_EQ(gate().Facts().sends - asked, c.valid ? 0u : 1u);
  }
}

TEST_F(LauncherCreation, AFileThatCannotBeUpdatedStaysAsItIs) {
  EXPECT_EQ(Update(true), "mainfo: BeginUpdateResource() failed");
  CopyTemplate();
  {
    const UniqueModule running(LoadLibraryW(Launcher("Chess").c_str()));
    EXPECT_EQ(Update(true), Lacks(Gap::LoadedUpdate) ? "mainfo: BeginUpdateResource() failed"
                                                     : "mainfo: EndUpdateResource() failed");
    EXPECT_EQ(Create(Info("Chess"), false), "mainfo: write to file failed");
  }
  ReplyWith(getIcons, {std::byte{0}});
  EXPECT_EQ(Update(false), "mainfo: bit_box: item exceeds its bit_box");
  EXPECT_EQ(Parts("Chess"), "template ");
  EXPECT_EQ(Update(true), "mainfo: bit_box: item exceeds its bit_box");
  EXPECT_EQ(Parts("Chess"), "");
}

TEST_F(LauncherCreation, TheInstallLocationIsAShortTextOfEitherView) {
  const struct {
    const char* what;
    DWORD type;
    std::string bytes, location;
  } cases[] = {{"text without NUL", REG_SZ, std::string("D\0:\0/\0", 6), "D:/"},
               {"260 units", REG_SZ, host::Utf16Bytes(std::string(259, 'x')), std::string(259, 'x')},
               {"261 units", REG_SZ, host::Utf16Bytes(std::string(260, 'x')), "D:\\Narrow"},
               {"expandable text", REG_EXPAND_SZ, host::Utf16Bytes("D:"), "D:\\Narrow"},
               {"empty text", REG_SZ, host::Utf16Bytes(""), "D:\\Narrow"}};
  hive::PutText(narrowKey, "InstallLocation", "D:\\Narrow");
  for (const auto& c : cases) {
    hive::PutData(toolsKey, "InstallLocation", c.type, c.bytes);
    EXPECT_EQ(WideToUtf8(ToolsInstallLocation()), c.location) << c.what;
  }
  hive::Drop(toolsKey);
  EXPECT_EQ(ToolsInstallLocation(), TEXT("D:\\Narrow"));
  hive::Drop(narrowKey);
  EXPECT_EQ(ToolsInstallLocation(), TEXT(""));
  EXPECT_EQ(Create(Info("Chess")), "mainfo: write to file failed");
  for (const char* ending : {"", "\\", "/"}) {  // only a backslash ends it
    hive::PutText(toolsKey, "InstallLocation", std::string("C:\\Program Files\\Tessarine\\Tools") + ending);
    EXPECT_EQ(Create(Info("Chess"), false), "built") << ending;
  }
}

// The error mode is the process', and so another test's: it is set here.
TEST_F(LauncherCreation, ALookForAFileLeavesTheErrorModeAlone) {
  const UINT mode = SetErrorMode(0);
  EXPECT_TRUE(FileExists(TemplateFile()));
  EXPECT_TRUE(FileExists(folder()));
  EXPECT_FALSE(FileExists(Launcher("Chess")));
  EXPECT_EQ(SetErrorMode(mode), 0u);
}

}  // namespace
