// What other programs read in the files that the layer writes.
#include <platform/control.h>

#include <cstdio>
#include <fstream>
#include <iterator>

#include "launcher/fs.h"
#include "stub/stub.h"
#include "support/module_fixture.h"

namespace {

class ForeignReaders : public ModuleTest {
 protected:
  static WideString Path() { return Scratch() + TEXT("\\file"); }
  static std::string HostPath() { return platform::GuestRoot() / "scratch" / "file"; }
  static std::string OutputOf(const std::string& reader) {
    FILE* pipe = popen((reader + " '" + HostPath() + "' 2>&1").c_str(), "r");
    std::string output;
    for (int c; (c = std::fgetc(pipe)) != EOF;) output += static_cast<char>(c);
    pclose(pipe);
    return output;
  }
};

TEST_F(ForeignReaders, FindTheResourcesOfAnUpdatedProgram) {
  for (const stub::Layout layout :
       {stub::Layout{}, {.wide = false}, {.relocations = true}, {.resources = false}}) {
    const auto image = stub::MakeTemplateStub(layout);
    WriteFileAt(Path(), {reinterpret_cast<const char*>(image.data()), image.size()});
    PutResource(Path(), 16, 1, 0x400, std::string(700, 'v'));
    for (const std::size_t size : {40, 70'001, 1}) {  // in place, behind what follows, in place again
      PutResource(Path(), 3, 449, 0x400, std::string(size, 'i'));
      EXPECT_EQ(OutputOf("wrestool -x --raw -t 16 -n 1"), std::string(700, 'v'));
      EXPECT_EQ(OutputOf("wrestool -x --raw -t 3 -n 449"), std::string(size, 'i'));
      EXPECT_NE(OutputOf("readpe").find("IMAGE_DIRECTORY_ENTRY_RESOURCE"), std::string::npos);
    }
  }
}

TEST_F(ForeignReaders, FindALinksTargetDescriptionAndProperties) {
  CreateShortcut(TEXT("C:\\scratch\\Sch\u00e4ch.exe"), Path(), TEXT("what it is"));
  const std::string text = OutputOf("lnkinfo");
  for (const char* line : {": C:\\scratch\\Sch\u00e4ch.exe\n", ": what it is\n", ": Fixed (3)\n"}) {
    EXPECT_NE(text.find(line), std::string::npos) << line << text;
  }
  // No reader shows the properties: the block's size and signature, and the storage's size and version.
  std::ifstream in(HostPath(), std::ios::binary);
  const std::string bytes{std::istreambuf_iterator<char>(in), {}};
  EXPECT_NE(bytes.find(std::string("\x4A\0\0\0\x09\0\0\xA0\x3E\0\0\0001SPS", 16)), std::string::npos);
}

}  // namespace
