// The guest of a native test: a temporary guest root, kept when the test fails, and fresh hives.
#include <platform/control.h>
#include <unistd.h>

#include <filesystem>

#include "support/guest.h"

namespace {
std::filesystem::path RootOfTest() {
  const auto* test = ::testing::UnitTest::GetInstance()->current_test_info();
  std::string name = std::string(test->test_suite_name()) + "." + test->name();
  for (char& c : name) c = c == '/' ? '_' : c;
  return std::filesystem::temp_directory_path() / ("velomira-" + std::to_string(getpid())) / name;
}
}  // namespace

void GuestTest::SetUp() {
  platform::SetGuestRoot(RootOfTest());
  std::filesystem::create_directories(RootOfTest() / "Users" / "guest" / "AppData" / "Local");
  platform::ResetRegistry();
  platform::TakeChangeNotifications();
}

void GuestTest::TearDown() {
  for (const auto& [kind, count] : platform::Census()) {
    ADD_FAILURE() << count << " open handles of kind " << kind;
  }
  if (HasFailure()) return;
  std::filesystem::remove_all(RootOfTest());
  std::error_code notEmpty;
  std::filesystem::remove(RootOfTest().parent_path(), notEmpty);
}

WideString GuestTest::Scratch() {
  std::filesystem::create_directories(platform::GuestRoot() / "scratch");
  return TEXT("C:\\scratch");
}
