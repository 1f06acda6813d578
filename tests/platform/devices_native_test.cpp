// Requests that a device keeps: who ends them, and how their caller learns of it.
#include <gtest/gtest.h>
#include <platform/control.h>
#include <process.h>
#include <winioctl.h>

#include <functional>
#include <thread>

#include "common/handles.h"
#include "support/keeping_device.h"

namespace {

constexpr DWORD control = CTL_CODE(0x22u, 0x900u, METHOD_BUFFERED, FILE_WRITE_ACCESS);

class DeviceTest : public ::testing::Test {
 protected:
  DeviceTest() { platform::SetDevice("\\\\.\\tested", device); }
  ~DeviceTest() override {
    platform::SetDevice("\\\\.\\tested", nullptr);
    device->Forget();
    EXPECT_TRUE(CloseHandle(record.hEvent));
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

  const std::shared_ptr<KeepingDevice> device = std::make_shared<KeepingDevice>();
  OVERLAPPED record{0, 0, 0, 0, CreateEventW(nullptr, TRUE, TRUE, nullptr)};
  char buffer[4] = "abc";
  DWORD returned = 0;
};

TEST_F(DeviceTest, APendingRequestIsEndedByAnotherThread) {
  const HANDLE handle = Open(FILE_FLAG_OVERLAPPED);
  std::size_t sent = 0;
  for (const DWORD error : {DWORD{0}, DWORD{ERROR_RETRY}}) {
    EXPECT_EQ(Send(handle, &record), DWORD{ERROR_IO_PENDING});
    EXPECT_FALSE(IsOver());
    EXPECT_EQ(Error(GetOverlappedResult(handle, &record, &returned, FALSE)), DWORD{ERROR_IO_INCOMPLETE});
    const std::jthread other([&] { device->Kept(sent++)->Complete(error, 2); });
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
    device->Kept(0);
    EXPECT_TRUE(CloseHandle(handle));
  });
  EXPECT_EQ(Send(handle, nullptr), DWORD{ERROR_OPERATION_ABORTED});
}

}  // namespace
