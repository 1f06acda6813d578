// Requests that a device keeps: who ends them, and how their caller learns of it.
#include <gtest/gtest.h>
#include <platform/control.h>
#include <process.h>
#include <winioctl.h>

#include <functional>
#include <mutex>
#include <thread>

#include "common/handles.h"

namespace {

constexpr DWORD control = CTL_CODE(0x22u, 0x900u, METHOD_BUFFERED, FILE_WRITE_ACCESS);

// Keeps one request until the test or a cancellation completes it.
class TestDevice final : public platform::Device {
 public:
  DWORD Open(DWORD, DWORD, bool) override { return 0; }
  void Close() override {}
  void Control(std::shared_ptr<platform::IoRequest> request) override {
    std::lock_guard lock(mutex_);
    kept_ = std::move(request);
    SetEvent(arrived);
  }
  void Cancel(const std::shared_ptr<platform::IoRequest>&) override { Complete(ERROR_OPERATION_ABORTED); }
  void Complete(DWORD error) {
    std::unique_lock lock(mutex_);
    const auto request = std::exchange(kept_, nullptr);
    lock.unlock();
    ASSERT_TRUE(request);
    request->Complete(error, 2);
  }

  const HANDLE arrived = CreateEventW(nullptr, FALSE, FALSE, nullptr);

 private:
  std::mutex mutex_;
  std::shared_ptr<platform::IoRequest> kept_;
};

class DeviceTest : public ::testing::Test {
 protected:
  DeviceTest() { platform::SetDevice("\\\\.\\tested", device); }
  ~DeviceTest() override {
    platform::SetDevice("\\\\.\\tested", nullptr);
    for (const HANDLE event : {record.hEvent, device->arrived}) EXPECT_TRUE(CloseHandle(event));
    EXPECT_TRUE(platform::Census().empty());
  }
  static HANDLE Open(DWORD flags) {
    return CreateFileW(TEXT("\\\\.\\Tested"), GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, flags, nullptr);
  }
  // The error of a call, 0 for success.
  static DWORD Error(BOOL result) { return result ? 0 : GetLastError(); }
  DWORD Send(HANDLE handle, LPOVERLAPPED overlapped) {
    return Error(DeviceIoControl(handle, control, buffer, 4, buffer, 4, &returned, overlapped));
  }
  bool IsOver() const {
    const bool signalled = WaitForSingleObject(record.hEvent, 0) == WAIT_OBJECT_0;
    EXPECT_EQ(signalled, HasOverlappedIoCompleted(&record));
    return signalled;
  }

  const std::shared_ptr<TestDevice> device = std::make_shared<TestDevice>();
  OVERLAPPED record{0, 0, 0, 0, CreateEventW(nullptr, TRUE, TRUE, nullptr)};
  char buffer[4] = "abc";
  DWORD returned = 0;
};

TEST_F(DeviceTest, APendingRequestIsEndedByAnotherThread) {
  const HANDLE handle = Open(FILE_FLAG_OVERLAPPED);
  for (const DWORD error : {DWORD{0}, DWORD{ERROR_RETRY}}) {
    EXPECT_EQ(Send(handle, &record), DWORD{ERROR_IO_PENDING});
    EXPECT_FALSE(IsOver());
    EXPECT_EQ(Error(GetOverlappedResult(handle, &record, &returned, FALSE)), DWORD{ERROR_IO_INCOMPLETE});
    const std::jthread other([&] { device->Complete(error); });
    EXPECT_EQ(Error(GetOverlappedResult(handle, &record, &returned, TRUE)), error);
    EXPECT_TRUE(IsOver());
    EXPECT_EQ(returned, 2u);
  }
  EXPECT_TRUE(CloseHandle(handle));
}

TEST_F(DeviceTest, TheIssuingThreadCancelsOnItsHandleAndSoDoItsEndAndAClosing) {
  const HANDLE handle = Open(FILE_FLAG_OVERLAPPED), second = Open(FILE_FLAG_OVERLAPPED);
  EXPECT_EQ(Send(handle, &record), DWORD{ERROR_IO_PENDING});
  std::jthread([&] { EXPECT_TRUE(CancelIo(handle)); });
  EXPECT_TRUE(CancelIo(second));
  EXPECT_FALSE(IsOver());
  EXPECT_TRUE(CancelIo(handle));
  EXPECT_EQ(Error(GetOverlappedResult(handle, &record, &returned, FALSE)), DWORD{ERROR_OPERATION_ABORTED});
  EXPECT_TRUE(IsOver());
  std::function<void()> send = [&] { Send(handle, &record); };
  const auto run = [](void* body) {
    (*static_cast<std::function<void()>*>(body))();
    return 0u;
  };
  const UniqueHandle thread(reinterpret_cast<HANDLE>(_beginthreadex(nullptr, 0, run, &send, 0, nullptr)));
  WaitForSingleObject(thread.get(), INFINITE);
  EXPECT_TRUE(IsOver()) << "its thread has ended";
  Send(handle, &record);
  std::jthread([&] { EXPECT_TRUE(CloseHandle(handle)); });
  EXPECT_TRUE(IsOver()) << "its handle was closed";
  EXPECT_TRUE(CloseHandle(second));
}

TEST_F(DeviceTest, ASynchronousCallIsEndedByAClosing) {
  const HANDLE handle = Open(FILE_ATTRIBUTE_NORMAL);
  const std::jthread other([&] {
    WaitForSingleObject(device->arrived, INFINITE);
    EXPECT_TRUE(CloseHandle(handle));
  });
  EXPECT_EQ(Send(handle, nullptr), DWORD{ERROR_OPERATION_ABORTED});
}

}  // namespace
