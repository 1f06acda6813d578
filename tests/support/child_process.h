// A test's second process, in Windows builds: this program again, which runs the same test and finds itself
// to be the child.
#pragma once

#include <gtest/gtest.h>
#include <windows.h>

#include <string>

inline constexpr const WCHAR* childVariable = TEXT("VELOMIRA_TEST_CHILD");
inline constexpr const WCHAR* readyName = TEXT("velomira-test-child-ready");

inline bool IsChild() {
  return GetEnvironmentVariableW(childVariable, nullptr, 0) != 0;
}
// In the child: lets the parent go on, and waits for the end.
[[noreturn]] inline void AwaitEnd() {
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
