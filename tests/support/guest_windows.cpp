// The guest of a test under Windows: the keys and folders of the user that the module touches, emptied before
// each test. Only for a user and a machine that are there for the tests.
#include <windows.h>

#include <shlobj.h>

#include <filesystem>

#include "support/guest.h"
#include "support/hive.h"

namespace {

std::filesystem::path Folder(int csidl) {
  WCHAR path[MAX_PATH]{};
  if (FAILED(SHGetFolderPathW(nullptr, csidl | CSIDL_FLAG_CREATE, nullptr, 0, path))) std::abort();
  return path;
}

void Clear() {
  for (const char* key :
       {"HKCU\\Software\\Classes", "HKCU\\Software\\RegisteredApplications", "HKCU\\Software\\Tessarine",
        "HKLM\\Software\\Tessarine", "HKLM\\Software\\Wow6432Node\\Tessarine",
        "HKLM\\Software\\Classes\\.velomiraopened", "HKLM\\Software\\Classes\\VelomiraTest.velomiraopened"}) {
    hive::Drop(key);
  }
  hive::PutKey("HKCU\\Software\\Classes");
  std::filesystem::remove_all(Folder(CSIDL_APPDATA) / L"Tessarine");
  std::filesystem::remove_all(Folder(CSIDL_PROGRAMS) / L"Tessarine Shared Applications");
  std::filesystem::remove_all(L"C:\\scratch");
}

}  // namespace

void GuestTest::SetUp() {
  Clear();
}

void GuestTest::TearDown() {}

WideString GuestTest::Scratch() {
  std::filesystem::create_directories(L"C:\\scratch");
  return TEXT("C:\\scratch");
}
