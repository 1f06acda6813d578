// Device I/O of the layer against a device that lives in the test. A request that the device keeps stays
// outstanding until the test, or a cancellation, completes it.
#include <gtest/gtest.h>
#include <platform/control.h>
#include <process.h>
#include <winioctl.h>

#include <algorithm>
#include <functional>
#include <mutex>

namespace {

constexpr DWORD control = CTL_CODE(0x22u, 0x900u, METHOD_BUFFERED, FILE_WRITE_ACCESS);

class TestDevice final : public platform::Device {
 public:
  DWORD Open(DWORD, DWORD share, bool) override {
    EXPECT_EQ(share, FILE_SHARE_READ | FILE_SHARE_WRITE);
    if (openError == 0) ++open;
    return openError;
  }
  void Close() override { --open; }
  void Control(std::shared_ptr<platform::IoRequest> request) override {
    EXPECT_EQ(request->code(), control);
    if (onControl) return onControl(*request);
    std::lock_guard lock(mutex_);
    kept_.push_back(std::move(request));
    SetEvent(arrived);
  }
  void Cancel(const std::shared_ptr<platform::IoRequest>& request) override {
    ++cancels;
    if (!ignoreCancel) CompleteKept(request, ERROR_OPERATION_ABORTED, 0);
  }
  // Null: the first one kept.
  void CompleteKept(std::shared_ptr<platform::IoRequest> request, DWORD error, DWORD returned) {
    {
      std::lock_guard lock(mutex_);
      const auto entry = request ? std::find(kept_.begin(), kept_.end(), request) : kept_.begin();
      ASSERT_NE(entry, kept_.end());
      request = *entry;
      kept_.erase(entry);
    }
    if (error == 0) static_cast<char*>(request->buffer())[0] = 'r';
    request->Complete(error, returned);
  }
  bool Keeps() {
    std::lock_guard lock(mutex_);
    return !kept_.empty();
  }

  HANDLE arrived = nullptr;  // auto-reset, signalled for each request kept
  DWORD openError = 0;
  std::function<void(platform::IoRequest&)> onControl;
  bool ignoreCancel = false;
  int open = 0;
  int cancels = 0;

 private:
  std::mutex mutex_;
  std::vector<std::shared_ptr<platform::IoRequest>> kept_;
};

unsigned __stdcall RunBody(void* body) {
  (*static_cast<const std::function<void()>*>(body))();
  return 0;
}

class DeviceTest : public ::testing::Test {
 protected:
  void SetUp() override {
    device->arrived = CreateEventW(nullptr, FALSE, FALSE, nullptr);
    record.hEvent = CreateEventW(nullptr, TRUE, TRUE, nullptr);
    platform::SetDevice("\\\\.\\tested", device);
    handle = Open(FILE_FLAG_OVERLAPPED);
  }
  void TearDown() override {
    if (handle != nullptr) CloseDevice();
    EXPECT_TRUE(CloseHandle(record.hEvent));
    EXPECT_TRUE(CloseHandle(device->arrived));
    platform::SetDevice("\\\\.\\tested", nullptr);
    EXPECT_EQ(device->open, 0);
    EXPECT_TRUE(platform::Census().empty());
  }

  static HANDLE Open(DWORD flags, DWORD access = GENERIC_WRITE) {
    return CreateFileW(TEXT("\\\\.\\Tested"), access, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                       OPEN_EXISTING, flags, nullptr);
  }
  void CloseDevice() {
    EXPECT_TRUE(CloseHandle(handle));
    handle = nullptr;
  }
  BOOL Submit() {
    SetLastError(0);
    return DeviceIoControl(handle, control, buffer, sizeof buffer, buffer, sizeof buffer, &returned, &record);
  }
  void SubmitPending() {
    EXPECT_FALSE(Submit());
    EXPECT_EQ(GetLastError(), ERROR_IO_PENDING);
    EXPECT_FALSE(HasOverlappedIoCompleted(&record));
    EXPECT_FALSE(Signalled());
  }
  bool Signalled() const { return WaitForSingleObject(record.hEvent, 0) == WAIT_OBJECT_0; }
  // The error of the outcome, 0 for success.
  DWORD Result(BOOL wait) {
    SetLastError(0);
    return GetOverlappedResult(handle, &record, &returned, wait) ? 0 : GetLastError();
  }
  // Runs `body` on another thread and `meanwhile` on this one, and waits for both.
  static void Beside(
      const std::function<void()>& body, const std::function<void()>& meanwhile = [] {}) {
    const auto thread =
        _beginthreadex(nullptr, 0, RunBody, const_cast<std::function<void()>*>(&body), 0, nullptr);
    meanwhile();
    EXPECT_EQ(WaitForSingleObject(reinterpret_cast<HANDLE>(thread), INFINITE), WAIT_OBJECT_0);
    EXPECT_TRUE(CloseHandle(reinterpret_cast<HANDLE>(thread)));
  }

  std::shared_ptr<TestDevice> device = std::make_shared<TestDevice>();
  HANDLE handle = nullptr;
  OVERLAPPED record{};
  char buffer[4] = "abc";
  DWORD returned = 77;
};

}  // namespace

TEST_F(DeviceTest, AnImmediateSuccessFillsTheRecordAndSignalsTheEvent) {
  device->onControl = [](platform::IoRequest& request) {
    EXPECT_EQ(request.size(), 4u);
    static_cast<char*>(request.buffer())[0] = 'r';
    request.Complete(0, 3);
  };
  ResetEvent(record.hEvent);
  EXPECT_TRUE(Submit());
  EXPECT_EQ(returned, 3u);
  EXPECT_EQ(buffer[0], 'r');
  EXPECT_TRUE(Signalled());
  EXPECT_TRUE(HasOverlappedIoCompleted(&record));
  returned = 0;
  EXPECT_EQ(Result(FALSE), 0u);
  EXPECT_EQ(returned, 3u);
}

TEST_F(DeviceTest, AnImmediateFailureIsTheCallsAloneAndLeavesTheEventReset) {
  device->onControl = [](platform::IoRequest& request) { request.Complete(ERROR_RETRY, 0); };
  EXPECT_FALSE(Submit());
  EXPECT_EQ(GetLastError(), ERROR_RETRY);
  EXPECT_FALSE(Signalled());
  EXPECT_EQ(returned, 77u);
}

TEST_F(DeviceTest, APendingRequestIsEndedByAnotherThread) {
  for (const DWORD error : std::initializer_list<DWORD>{0, ERROR_RETRY, ERROR_OPERATION_ABORTED}) {
    SCOPED_TRACE(error);
    SubmitPending();
    EXPECT_EQ(Result(FALSE), ERROR_IO_INCOMPLETE);
    buffer[0] = 'a';
    Beside([&] { device->CompleteKept(nullptr, error, 2); },
           [&] {
             while (!HasOverlappedIoCompleted(&record)) Sleep(0);
             EXPECT_EQ(buffer[0], error == 0 ? 'r' : 'a');
           });
    EXPECT_TRUE(Signalled());
    EXPECT_EQ(Result(FALSE), error);
    EXPECT_EQ(returned, 2u);

    SubmitPending();
    Beside([&] { device->CompleteKept(nullptr, error, 1); },
           [&] { EXPECT_EQ(WaitForSingleObject(record.hEvent, INFINITE), WAIT_OBJECT_0); });
    EXPECT_EQ(Result(FALSE), error);

    SubmitPending();
    Beside([&] { device->CompleteKept(nullptr, error, 1); }, [&] { EXPECT_EQ(Result(TRUE), error); });
  }
}

TEST_F(DeviceTest, OnlyTheIssuingThreadCancelsAndOnlyOnItsHandle) {
  const HANDLE second = Open(FILE_FLAG_OVERLAPPED);
  EXPECT_TRUE(CancelIo(handle)) << "nothing is outstanding";
  SubmitPending();
  Beside([&] { EXPECT_TRUE(CancelIo(handle)); });
  EXPECT_TRUE(CancelIo(second));
  EXPECT_TRUE(device->Keeps());
  EXPECT_TRUE(CancelIo(handle));
  EXPECT_EQ(Result(FALSE), ERROR_OPERATION_ABORTED);
  EXPECT_TRUE(Signalled());
  EXPECT_TRUE(CloseHandle(second));
}

TEST_F(DeviceTest, ClosingTheHandleCancelsWhatIsOutstandingFromAnyThread) {
  SubmitPending();
  Beside([&] { CloseDevice(); });
  EXPECT_EQ(device->cancels, 1);
  EXPECT_TRUE(HasOverlappedIoCompleted(&record));
  EXPECT_TRUE(Signalled());
}

TEST_F(DeviceTest, AThreadThatEndsTakesItsRequestsAlong) {
  Beside([&] { SubmitPending(); });
  EXPECT_EQ(Result(FALSE), ERROR_OPERATION_ABORTED);
}

TEST_F(DeviceTest, ASynchronousCallLastsUntilTheRequestEnds) {
  CloseDevice();
  const HANDLE synchronous = Open(FILE_ATTRIBUTE_NORMAL, GENERIC_READ | GENERIC_WRITE);
  const auto call = [&] {
    SetLastError(0);
    return DeviceIoControl(synchronous, control, buffer, 4, buffer, 4, &returned, nullptr);
  };
  for (const DWORD error : std::initializer_list<DWORD>{0, ERROR_WORKING_SET_QUOTA}) {
    Beside(
        [&] {
          WaitForSingleObject(device->arrived, INFINITE);
          device->CompleteKept(nullptr, error, 4);
        },
        [&] {
          returned = 77;
          EXPECT_EQ(call() != FALSE, error == 0);
          EXPECT_EQ(GetLastError(), error);
          EXPECT_EQ(returned, error == 0 ? 4u : 77u);
        });
  }
  Beside(
      [&] {
        WaitForSingleObject(device->arrived, INFINITE);
        EXPECT_TRUE(CloseHandle(synchronous));
      },
      [&] {
        EXPECT_FALSE(call());
        EXPECT_EQ(GetLastError(), ERROR_OPERATION_ABORTED);
      });
}
