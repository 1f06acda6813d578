// Link files as another program reads them (lnkinfo), their properties byte by byte, and the failures
// of the shell in denied folders.
#include <platform/control.h>
#include <shlobj.h>

#include <array>
#include <cstdio>
#include <fstream>
#include <sstream>

#include "common/handles.h"
#include "support/guest.h"

namespace {

namespace fs = std::filesystem;

constexpr GUID appUserModel{0x9F4C2855, 0x9F79, 0x4B39, {0xA8, 0xD0, 0xE1, 0xD4, 0x2D, 0xE1, 0xD5, 0xF3}};
constexpr PROPERTYKEY pin{appUserModel, 12}, exclude{appUserModel, 8};
constexpr const WCHAR* linkPath = TEXT("C:\\scratch\\a.lnk");

template <class Interface>
ComPtr<Interface> Query(IUnknown* object, REFIID iid) {
  void* found = nullptr;
  EXPECT_EQ(object->QueryInterface(iid, &found), S_OK);
  ComPtr<Interface> holder;
  holder.reset(static_cast<Interface*>(found));
  return holder;
}

class LinkFileNativeTest : public GuestTest {
 protected:
  void SetUp() override {
    GuestTest::SetUp();
    Scratch();
    ASSERT_EQ(CoInitialize(nullptr), S_OK);
  }
  void TearDown() override {
    CoUninitialize();
    GuestTest::TearDown();
  }

  static ComPtr<IShellLinkW> Create() {
    ComPtr<IShellLinkW> holder;
    IShellLinkW* link = nullptr;
    CoCreateInstance(CLSID_ShellLink, nullptr, CLSCTX_INPROC_SERVER, IID_IShellLinkW,
                     reinterpret_cast<void**>(&link));
    holder.reset(link);
    return holder;
  }

  // A link with all that is written, saved; its properties committed or not.
  static HRESULT Save(bool commit = true) {
    const auto link = Create();
    link->SetPath(TEXT("C:\\scratch\\Sch\u00e4ch (Mac).exe"));
    link->SetDescription(TEXT("Tessarine Shared Application shortcut"));
    const auto store = Query<IPropertyStore>(link.get(), IID_IPropertyStore);
    PROPVARIANT value{};
    value.vt = VT_UI4;
    value.ulVal = 7;
    store->SetValue(pin, value);
    value.ulVal = 1;
    store->SetValue(pin, value);
    value = {};
    value.vt = VT_BOOL;
    value.boolVal = VARIANT_TRUE;
    store->SetValue(exclude, value);
    if (commit) store->Commit();
    return Query<IPersistFile>(link.get(), IID_IPersistFile)->Save(linkPath, TRUE);
  }

  static fs::path HostLink() { return platform::GuestRoot() / "scratch" / "a.lnk"; }

  static std::string Bytes() {
    std::ifstream file(HostLink(), std::ios::binary);
    return (std::ostringstream() << file.rdbuf()).str();
  }
};

TEST_F(LinkFileNativeTest, AnotherReaderShowsTargetAndDescription) {
  ASSERT_EQ(Save(), S_OK);
  FILE* reader = popen(("lnkinfo '" + HostLink().string() + "'").c_str(), "r");
  ASSERT_TRUE(reader);
  std::string text;
  std::array<char, 4096> part;
  while (const std::size_t count = fread(part.data(), 1, part.size(), reader))
    text.append(part.data(), count);
  ASSERT_EQ(pclose(reader), 0) << text;
  for (const char* line : {": C:\\scratch\\Sch\u00e4ch (Mac).exe\n",
                           ": Tessarine Shared Application shortcut\n", ": Fixed (3)\n"}) {
    EXPECT_NE(text.find(line), text.npos) << line << text;
  }
  EXPECT_EQ(text.find("Relative path"), text.npos) << "only what was set is in the file";
  EXPECT_EQ(text.find("arguments"), text.npos);
}

TEST_F(LinkFileNativeTest, CommittedPropertiesAreInTheFile) {
  constexpr unsigned char block[] = {0x4A, 0,    0,    0,    0x09, 0,    0,    0xA0,  // block of properties
                                     0x3E, 0,    0,    0,    '1',  'S',  'P',  'S',   // storage
                                     0x55, 0x28, 0x4C, 0x9F, 0x79, 0x9F, 0x39, 0x4B, 0xA8,
                                     0xD0, 0xE1, 0xD4, 0x2D, 0xE1, 0xD5, 0xF3, 0x11, 0,
                                     0,    0,    12,   0,    0,    0,    0,    19,   0,
                                     0,    0,    1,    0,    0,    0,  // pin: VT_UI4 1
                                     0x11, 0,    0,    0,    8,    0,    0,    0,    0,
                                     11,   0,    0,    0,    0xFF, 0xFF, 0,    0,  // exclude: VT_BOOL
                                     0,    0,    0,    0,    0,    0,    0,    0,    0,
                                     0,    0,    0};  // the three ends
  const std::string expected(reinterpret_cast<const char*>(block), sizeof block);
  ASSERT_EQ(Save(), S_OK);
  EXPECT_TRUE(Bytes().ends_with(expected));

  const auto link = Create();
  ASSERT_EQ(Query<IPersistFile>(link.get(), IID_IPersistFile)->Load(linkPath, 0), S_OK);
  const auto store = Query<IPropertyStore>(link.get(), IID_IPropertyStore);
  PROPVARIANT value{};
  EXPECT_EQ(store->GetValue(pin, &value), S_OK);
  EXPECT_TRUE(value.vt == VT_UI4 && value.ulVal == 1);
  EXPECT_EQ(store->GetValue(exclude, &value), S_OK);
  EXPECT_TRUE(value.vt == VT_BOOL && value.boolVal == VARIANT_TRUE);
  EXPECT_EQ(store->GetValue({appUserModel, 5}, &value), S_OK);
  EXPECT_EQ(value.vt, VT_EMPTY);

  ASSERT_EQ(Save(false), S_OK);
  EXPECT_EQ(Bytes().find("1SPS"), std::string::npos) << "without Commit nothing is stored";
}

}  // namespace
