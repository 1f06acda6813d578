// Launchers with each single platform call failing in turn: what is raised, and what is left.
#include "launcher/mainfo.h"

#include "common/handles.h"
#include "launcher/fs.h"
#include "launcher/resop.h"
#include "support/fault_runs.h"
#include "support/hive.h"
#include "support/module_fixture.h"
#include "support/raised.h"

namespace {

const std::string chessKey = "HKCU\\Software\\Classes\\Applications\\Chess (Mac).exe";

class LauncherFaults : public ModuleTest {
 protected:
  void SetUp() override {
    ModuleTest::SetUp();
    Share({TestApplication("Chess")});
  }

  const MacAppInfo chess_ = Info("Chess");

  std::string Parts() const {
    std::string parts;
    if (FileIsThere(Launcher("Chess"))) {
      parts += ResourceChanges(Launcher("Chess")).empty() ? "+template" : "+launcher";
    }
    if (hive::Has(chessKey)) parts += "+key";
    if (FileIsThere(Shortcut("Chess"))) parts += "+shortcut";
    return parts.empty() ? "nothing" : parts.substr(1);
  }

  // One line for each call whose failure makes a difference to the run without one: the call, what came of
  // the work, and what is there afterwards. `arrange` makes the start of every run.
  template <class Arrange, class Work>
  std::string Differences(Arrange arrange, Work work) {
    std::string undisturbed, lines;
    arrange();
    const std::vector<std::string> calls = CallsOf([&] { undisturbed = work(); });
    undisturbed += "; " + Parts();
    for (std::size_t n = 1; n <= calls.size(); ++n) {
      arrange();
      std::string outcome;
      WithFault(n, [&] { outcome = work(); });
      outcome += "; " + Parts();
      if (outcome != undisturbed) lines += calls[n - 1] + ": " + outcome + "\n";
    }
    return lines;
  }
};

TEST_F(LauncherFaults, CreationStopsAtTheFailureAndLeavesWhatItsStepMade) {
  const auto clear = [&] {
    DeletePath(LauncherFolder());
    DeletePath(ShortcutFolder());
    hive::Drop(chessKey);
    LauncherFolder();
  };
  EXPECT_EQ(Differences(clear, [&] { return Raised([&] { CreateLauncher(folder(), chess_, false); }); }),
            "RegOpenKeyExW: mainfo: write to file failed; nothing\n"
            "RegQueryValueExW: mainfo: write to file failed; nothing\n"
            "CopyFileW: mainfo: write to file failed; nothing\n"
            "BeginUpdateResourceW: mainfo: BeginUpdateResource() failed; template\n"
            "UpdateResourceW: mainfo: resop: UpdateResource(RT_RCDATA) failed; nothing\n"
            "UpdateResourceW: mainfo: resop: UpdateResource(RT_RCDATA) failed; nothing\n"
            "UpdateResourceW: mainfo: resop: UpdateResource(RT_VERSION) failed; nothing\n"
            "WideCharToMultiByte: mainfo: mainfo: command failed; nothing\n"
            "WideCharToMultiByte: mainfo: mainfo: command failed; nothing\n"
            "CreateFileA: mainfo: dtool: Can't open tool device driver; nothing\n"
            "DeviceIoControl: mainfo: mainfo: ioctl() returned no data; nothing\n"
            "UpdateResourceW: mainfo: resop: icon group list is empty; nothing\n"
            "UpdateResourceW: mainfo: resop: UpdateResource(RT_GROUP_ICON) failed; nothing\n"
            "UpdateResourceW: mainfo: resop: UpdateResource(RT_RCDATA) failed; nothing\n"
            "EndUpdateResourceW: mainfo: EndUpdateResource() failed; template\n"
            "RegOpenCurrentUser: registry: RegOpenCurrentUser() failed; launcher\n"
            "RegCreateKeyExW: registry_registration: can't register application; launcher\n"
            "RegSetValueExW: registry_registration: can't register application; launcher+key\n"
            "RegCreateKeyExW: registry_registration: can't register application; launcher+key\n"
            "RegSetValueExW: registry_registration: can't register application; launcher+key\n"
            "SHGetSpecialFolderPathW: fs: SHGetSpecialFolderPathW() failed; launcher+key\n"
            "SHCreateDirectoryExW: fs: IPersistFile::Save() failed; launcher+key\n"
            "CoCreateInstance: fs: CoCreateInstance() failed; launcher+key\n"
            "IUnknown::QueryInterface: fs: IShellLink::QueryInterface() failed; launcher+key\n"
            "IPersistFile::Save: fs: IPersistFile::Save() failed; launcher+key\n");
}

TEST_F(LauncherFaults, AnUnreadableIdentifierRemovesTheLauncherAndAnUnloadableFileDoesNot) {
  const auto build = [&] { CreateLauncher(folder(), chess_, false); };
  EXPECT_EQ(Differences(build, [&] { return HasValidLauncher(folder(), chess_) ? "valid" : "not valid"; }),
            "GetFileAttributesW: not valid; launcher+key+shortcut\n"
            "LoadLibraryW: not valid; launcher+key+shortcut\n"
            "FindResourceExW: not valid; nothing\n"
            "SizeofResource: not valid; nothing\n"
            "LoadResource: not valid; nothing\n"
            "LockResource: not valid; nothing\n");
}

TEST_F(LauncherFaults, EachStepOfReadingBackSaysWhichItWas) {
  CreateLauncher(folder(), chess_, false);
  const UniqueModule module(LoadLibraryW(Launcher("Chess").c_str()));
  const auto read = [&] { ReadRcData(module.get(), BundleIdResource, languageNeutral); };
  std::string lines;
  const std::vector<std::string> calls = CallsOf(read);
  for (std::size_t n = 1; n <= calls.size(); ++n) {
    WithFault(n, [&] { lines += calls[n - 1] + ": " + Raised(read) + "\n"; });
  }
  EXPECT_EQ(lines,
            "FindResourceExW: resop: can't find resource specified\n"
            "SizeofResource: resop: can't get size of resource\n"
            "LoadResource: resop: can't load resource\n"
            "LockResource: resop: can't lock resource\n");
}

TEST_F(LauncherFaults, AnIconThatCannotBeWrittenLeavesAGap) {
  const WideString file = Scratch() + TEXT("\\file.exe");
  const std::vector<std::byte> bitmap = TestBitmap(16, 16);
  const auto write = [&] {
    const HANDLE update = BeginUpdateResourceW(file.c_str(), FALSE);
    EXPECT_EQ(Raised([&] { WriteIconGroup(update, {bitmap, bitmap}, IconGroupId); }), "");
    EndUpdateResourceW(update, FALSE);
  };
  CopyFileW(TemplateFile().c_str(), file.c_str(), FALSE);
  const std::size_t firstIcon = FirstCall("UpdateResourceW", write);
  CopyFileW(TemplateFile().c_str(), file.c_str(), FALSE);
  WithFault(firstIcon, write);
  EXPECT_EQ(ResourceChanges(file), "+3/450/1024 1128\n+14/448/1024 20\n");
}

TEST_F(LauncherFaults, AFailureOfAnotherKindCleansUpAsWell) {
  gate().Serve([](std::span<const std::byte>) -> host::Reply { throw 42; });
  EXPECT_EQ(Raised([&] { CreateLauncher(folder(), chess_, false); }), "mainfo: can't update resources");
  EXPECT_EQ(Parts(), "nothing");
}

}  // namespace
