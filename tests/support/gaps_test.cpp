// The known differences, measured.
#include "support/gaps.h"

#include <windows.h>

#include <propsys.h>
#include <shlobj.h>
#include <shlwapi.h>

#include "common/handles.h"
#include "stub/stub.h"
#include "support/guest.h"
#include "support/hive.h"
#include "support/module_fixture.h"

namespace {

class PlatformGaps : public GuestTest {};

bool UserClassesAreShown() {
  hive::PutKey("HKCU\\Software\\Classes\\VelomiraGap");
  return hive::Has("HKCR\\VelomiraGap");
}

bool LinkPropertiesComeBack() {
  constexpr PROPERTYKEY key = {{0x9F4C2855, 0x9F79, 0x4B39, {0xA8, 0xD0, 0xE1, 0xD4, 0x2D, 0xE1, 0xD5, 0xF3}},
                               12};
  void* made = nullptr;
  EXPECT_GE(CoCreateInstance(CLSID_ShellLink, nullptr, CLSCTX_INPROC_SERVER, IID_IPropertyStore, &made), 0);
  if (made == nullptr) return false;
  const ComPtr<IPropertyStore> store(static_cast<IPropertyStore*>(made));
  PROPVARIANT value{};
  value.vt = VT_UI4;
  value.ulVal = 1;
  store->SetValue(key, value);
  store->Commit();
  PROPVARIANT back{};
  store->GetValue(key, &back);
  return back.vt == VT_UI4;
}

bool ExpandableTextStaysAsItIs() {
  hive::PutData("HKCU\\Software\\Classes", "VelomiraGap", REG_EXPAND_SZ, host::Utf16Bytes("%windir%"));
  WCHAR text[64]{};
  DWORD type = REG_NONE, size = sizeof text;
  SHGetValueW(HKEY_CURRENT_USER, TEXT("Software\\Classes"), TEXT("VelomiraGap"), &type, text, &size);
  return type == REG_EXPAND_SZ && WideString(text) == TEXT("%windir%");
}

bool ProgIdsAreReported() {
  const hive::MachineAssociation associated("velomiragap", true);
  DWORD size = 0xFFFFFFFF;
  return AssocQueryStringW(ASSOCF_INIT_IGNOREUNKNOWN | ASSOCF_NOTRUNCATE, static_cast<ASSOCSTR>(20),
                           TEXT(".velomiragap"), nullptr, nullptr, &size) != E_NOTIMPL;
}

bool ALoadedProgramIsOpenedForUpdate(const WideString& file) {
  const std::vector<std::byte> stub = stub::MakeTemplateStub();
  WriteFileAt(file, {reinterpret_cast<const char*>(stub.data()), stub.size()});
  const UniqueModule loaded(LoadLibraryW(file.c_str()));
  EXPECT_TRUE(loaded);
  const HANDLE update = BeginUpdateResourceW(file.c_str(), FALSE);
  return update != nullptr && EndUpdateResourceW(update, TRUE);
}

TEST_F(PlatformGaps, AreAsTheyAreKnown) {
  EXPECT_NE(ALoadedProgramIsOpenedForUpdate(Scratch() + TEXT("\\loaded.exe")), Lacks(Gap::LoadedUpdate));
  EXPECT_NE(UserClassesAreShown(), Lacks(Gap::UserClasses));
  EXPECT_NE(ExpandableTextStaysAsItIs(), Lacks(Gap::ExpandedText));
  EXPECT_NE(ProgIdsAreReported(), Lacks(Gap::ProgIdQuery));
  ASSERT_GE(CoInitialize(nullptr), 0);
  EXPECT_NE(LinkPropertiesComeBack(), Lacks(Gap::LinkProperties));
  CoUninitialize();
}

}  // namespace
