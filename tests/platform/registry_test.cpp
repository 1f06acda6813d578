// How the registry takes paths apart, and deleted keys, where the module's own suites would not notice a
// difference.

#include "support/guest.h"
#include "support/hive.h"

namespace {

class RegistryTest : public GuestTest {};

TEST_F(RegistryTest, PathsAreTakenApartAtBackslashesAndADeletedKeyStaysSo) {
  hive::PutKey("HKCU\\Software\\Classes\\One\\Two");
  const auto open = [](const WCHAR* path, HKEY* key) {
    return RegOpenKeyExW(HKEY_CURRENT_USER, path, 0, KEY_ALL_ACCESS, key);
  };
  HKEY key = nullptr;
  EXPECT_EQ(open(TEXT("\\Software\\Classes"), &key), ERROR_BAD_PATHNAME);
  EXPECT_EQ(open(TEXT("Software/Classes"), &key), ERROR_FILE_NOT_FOUND);
  EXPECT_EQ(RegDeleteKeyW(HKEY_CURRENT_USER, TEXT("Software\\Classes\\One")), ERROR_ACCESS_DENIED);
  ASSERT_EQ(open(TEXT("Software\\\\CLASSES\\one\\TWO\\"), &key), 0);
  EXPECT_EQ(RegDeleteKeyW(HKEY_CURRENT_USER, TEXT("Software\\Classes\\ONE\\two\\")), 0);
  hive::PutKey("HKCU\\Software\\Classes\\One\\Two");
  EXPECT_EQ(RegSetValueExW(key, TEXT("v"), 0, REG_SZ, nullptr, 0), ERROR_KEY_DELETED);
  EXPECT_EQ(RegDeleteKeyW(key, TEXT("")), ERROR_KEY_DELETED);
  RegCloseKey(key);
}

}  // namespace
