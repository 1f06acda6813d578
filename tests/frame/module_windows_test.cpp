// The module as its loading program has it, the DLL over a real driver: what a thousand runs leave, and two
// modules in two processes at one device.

#include "support/tool_guest.h"

namespace {

// The lowest handle that is free: it grows by 4 with each that stays open.
std::uintptr_t FreeHandle() {
  const HANDLE handle = CreateEventW(nullptr, TRUE, FALSE, nullptr);
  CloseHandle(handle);
  return reinterpret_cast<std::uintptr_t>(handle);
}

using ModuleLibrary = ToolGuest;

TEST_F(ModuleLibrary, AThousandRunsLeaveNoHandleAndTheLibraryGoes) {
  std::uintptr_t handle = 0;
  for (std::uint64_t run = 0; run < 1005; ++run) {
    if (run == 105) handle = FreeHandle();  // a command has run, for which the system opens some for good
    ASSERT_EQ(module->Start(), 0);
    if (run % 100 == 99) Run(other);
    ASSERT_EQ(module->Stop(), 0);
  }
  EXPECT_LT(FreeHandle(), handle + 4 * 5);
  EXPECT_EQ(gate().Facts().closes, gate().Facts().opens);
  EXPECT_EQ(gate().Facts().cancelled, 1005u);
  EXPECT_NE(GetModuleHandleW(L"velomira.dll"), nullptr);
  module.reset();
  EXPECT_EQ(GetModuleHandleW(L"velomira.dll"), nullptr);
}

// A second process: this program again, which runs the same test and finds itself to be the child.
constexpr const WCHAR* childVariable = TEXT("VELOMIRA_TEST_CHILD");
constexpr const WCHAR* readyName = TEXT("velomira-test-child-ready");

bool IsChild() {
  return GetEnvironmentVariableW(childVariable, nullptr, 0) != 0;
}
// In the child: lets the parent go on, and waits for the end.
[[noreturn]] void AwaitEnd() {
  SetEvent(OpenEventW(EVENT_MODIFY_STATE, FALSE, readyName));
  for (;;) Sleep(INFINITE);
}

// The child, which is ready when the constructor returns.
class Child {
 public:
  Child() {
    const ::testing::TestInfo* test = ::testing::UnitTest::GetInstance()->current_test_info();
    std::string filter = std::string("--gtest_filter=") + test->test_suite_name() + "." + test->name();
    WCHAR program[MAX_PATH];
    GetModuleFileNameW(nullptr, program, MAX_PATH);
    std::wstring commandLine = L"child " + std::wstring(filter.begin(), filter.end());
    STARTUPINFOW startup{};
    startup.cb = sizeof startup;
    SetEnvironmentVariableW(childVariable, TEXT("1"));
    EXPECT_TRUE(CreateProcessW(program, commandLine.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr,
                               &startup, &process_));
    SetEnvironmentVariableW(childVariable, nullptr);
    EXPECT_EQ(WaitForSingleObject(ready_, 30000), WAIT_OBJECT_0);
  }
  ~Child() {
    for (const HANDLE handle : {process_.hThread, process_.hProcess, ready_}) CloseHandle(handle);
  }
  Child(const Child&) = delete;
  Child& operator=(const Child&) = delete;

  void Kill() {
    EXPECT_TRUE(TerminateProcess(process_.hProcess, 0));
    EXPECT_EQ(WaitForSingleObject(process_.hProcess, 30000), WAIT_OBJECT_0);
  }

 private:
  HANDLE ready_ = CreateEventW(nullptr, TRUE, FALSE, readyName);
  PROCESS_INFORMATION process_{};
};

// The host's side of two guests at one device.
class ModuleProcesses : public GateTest {
 protected:
  void SetUp() override {
    if (!IsChild()) GateTest::SetUp();
  }
  void TearDown() override {
    if (!IsChild()) GateTest::TearDown();
  }

  // A guest has both handles of the device when it announces itself.
  void ExpectAnnouncement() {
    Await(100);
    EXPECT_EQ(TakeAsked(), Codes{100});
  }
  // Asks for `count` announcements, one after the other; each is by one guest alone.
  void Announce(int count) {
    for (int i = 0; i < count; ++i) {
      gate().Push(host::AnnounceCommand());
      ExpectAnnouncement();
    }
  }
};

TEST_F(ModuleProcesses, TwoModulesShareTheCommandsAndAreCleanedUpApart) {
  const auto module = std::make_unique<host::Module>(host::DefaultModule());
  EXPECT_EQ(module->Start(), 0);
  if (IsChild()) AwaitEnd();
  ExpectAnnouncement();
  Child other;
  ExpectAnnouncement();
  EXPECT_EQ(OpenHandles(), 4u);
  Announce(10);
  EXPECT_EQ(module->Stop(), 0);
  EXPECT_EQ(gate().Facts().cancelled, 1u);
  EXPECT_EQ(OpenHandles(), 2u);
  Announce(1);  // by the other process now
  EXPECT_EQ(module->Start(), 0);
  ExpectAnnouncement();
  other.Kill();
  // Wine tells the driver of a handle's end a little after the process's.
  for (int i = 0; i < 3000 && OpenHandles() != 2; ++i) Sleep(10);
  EXPECT_EQ(OpenHandles(), 2u);
  EXPECT_EQ(gate().Facts().cancelled, 2u);
  Announce(4);
  EXPECT_EQ(module->Stop(), 0);
  EXPECT_EQ(OpenHandles(), 0u);
}

}  // namespace
