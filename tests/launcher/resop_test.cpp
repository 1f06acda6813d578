// Single resources: the icon group with what it leaves out, reading back, and the failure of each write.
#include "launcher/resop.h"

#include "common/handles.h"
#include "host/wire.h"
#include "launcher/bmp2ico.h"
#include "support/module_fixture.h"
#include "support/raised.h"

namespace {

using host::Bytes;

std::string Characters(const Bytes& bytes) {
  return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

// A file with the template's resources, under update for the time of the test's choosing.
class ResourceOperations : public ModuleTest {
 protected:
  void SetUp() override {
    ModuleTest::SetUp();
    file_ = Scratch() + TEXT("\\file.exe");
    ASSERT_TRUE(CopyFileW(TemplateFile().c_str(), file_.c_str(), FALSE));
  }

  template <class Work>
  std::string Update(Work work) {
    const HANDLE update = BeginUpdateResourceW(file_.c_str(), FALSE);
    const std::string raised = Raised([&] { work(update); });
    EXPECT_TRUE(EndUpdateResourceW(update, FALSE));
    return raised;
  }

  const WideString& file() const { return file_; }

 private:
  WideString file_;
};

TEST_F(ResourceOperations, IconGroupLeavesGapsForWhatIsRefused) {
  const Bytes small = TestBitmap(16, 16), large = TestBitmap(256, 256);
  Bytes refused = TestBitmap(32, 32);
  refused[28] = std::byte{24};
  EXPECT_EQ(Update([&](HANDLE update) { WriteIconGroup(update, {small, refused, large}, IconGroupId); }), "");
  EXPECT_EQ(ResourceChanges(file()), "+3/449/1024 1128\n+3/451/1024 270376\n+14/448/1024 34\n");
  Bytes group;
  for (const std::uint32_t field : {0u, 1u, 2u}) host::PutU16(group, field);
  const struct { std::uint32_t size, bytes, identifier; } entries[] = {{16, 1128, 449}, {0, 270376, 451}};
  for (const auto& e : entries) {
    host::PutU16(group, e.size | e.size << 8);
    for (const std::uint32_t field : {0u, 1u, 32u}) host::PutU16(group, field);
    host::PutU32(group, e.bytes);
    host::PutU16(group, e.identifier);
  }
  EXPECT_EQ(ResourceData(file(), 14, 448, 0x0400), Characters(group));
  EXPECT_EQ(ResourceData(file(), 3, 451, 0x0400), Characters(BitmapToIcon(large, false)));
}

TEST_F(ResourceOperations, IconGroupNeedsAnIcon) {
  Bytes refused = TestBitmap(16, 16);
  refused[0] = std::byte{0};
  for (const HostBitmapList& bitmaps : {HostBitmapList{}, HostBitmapList{refused, {}}}) {
    EXPECT_EQ(Update([&](HANDLE update) { WriteIconGroup(update, bitmaps, IconGroupId); }),
              "resop: icon group list is empty");
  }
}

TEST_F(ResourceOperations, EveryWriteThatFailsSaysWhich) {
  const Bytes bitmap = TestBitmap(16, 16);
  EXPECT_EQ(Raised([] { WriteRcData(nullptr, "x", 1, 260, 0); }), "resop: UpdateResource(RT_RCDATA) failed");
  EXPECT_EQ(Raised([] { WriteVersionInfo(nullptr, Info("Chess")); }),
            "resop: UpdateResource(RT_VERSION) failed");
  EXPECT_EQ(Raised([&] { WriteIcon(nullptr, bitmap, 449); }), "resop: UpdateResource(RT_ICON) failed");
  EXPECT_EQ(Raised([&] { WriteIconGroup(nullptr, {bitmap}, 448); }), "resop: icon group list is empty");
}

TEST_F(ResourceOperations, DataAreReadBackFromALoadedModule) {
  EXPECT_EQ(Update([](HANDLE update) { WriteRcData(update, "abc", 3, 260, languageNeutral); }), "");
  const UniqueModule module(LoadLibraryW(file().c_str()));
  ASSERT_TRUE(module);
  const auto data = ReadRcData(module.get(), 260, languageNeutral);
  EXPECT_EQ(Characters({data.begin(), data.end()}), "abc");
  EXPECT_EQ(Raised([&] { ReadRcData(module.get(), 261, languageNeutral); }),
            "resop: can't find resource specified");
}

}  // namespace
