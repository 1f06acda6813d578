// The channel over DeviceIoControl. Under memory pressure the system refuses an I/O control with its quota
// error; the same control is then issued again every 50 ms until it is taken.
#include "channel/tg.h"

#include <new>

#include "common/handles.h"

// The named links between the interfaces and their implementations; they add nothing of their own.
class __TgHandle : public Tg {};          // NOLINT(bugprone-reserved-identifier)
class __TgContext : public TgContext {};  // NOLINT(bugprone-reserved-identifier)

namespace {

constexpr const WCHAR* deviceName = TEXT("\\\\.\\tsr_tg");
constexpr DWORD quotaPause = 50;  // milliseconds

DWORD InlineSize(const TgRequest& request) {
  return (request.inlineByteCount + 7u) & ~7u;
}

DWORD RequestSize(const TgRequest& request) {
  return static_cast<DWORD>(sizeof(TgBuffer)) * (request.bufferCount + 1u) + InlineSize(request);
}

// Ends the request with a status of our own: nothing was transferred.
void FailWith(TgRequest& request, std::uint32_t status) {
  request.status = status;
  auto* buffers =
      reinterpret_cast<TgBuffer*>(reinterpret_cast<std::byte*>(&request + 1) + InlineSize(request));
  for (std::uint16_t i = 0; i < request.bufferCount; ++i) buffers[i].byteCount = 0;
}

// Gives an aborted or retried request its status; raises TgException for every other error.
void FailBySystemError(TgRequest& request, DWORD error) {
  if (error == ERROR_OPERATION_ABORTED) {
    FailWith(request, TgStatusCancelled);
  } else if (error == ERROR_RETRY) {
    FailWith(request, TgStatusRetry);
  } else {
    throw TgException{error};
  }
}

UniqueFile OpenDevice(DWORD flags) {
  return UniqueFile(CreateFileW(deviceName, GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                                OPEN_EXISTING, flags, nullptr));
}

// Issues the control, again and again while the quota is exhausted. 0, or the system's error.
DWORD IssueControl(HANDLE device, TgRequest& request, DWORD size, OVERLAPPED* overlapped) {
  while (true) {
    DWORD returned = 0;
    if (DeviceIoControl(device, IOCTL_TG_REQUEST, &request, size, &request, size, &returned, overlapped)) {
      return ERROR_SUCCESS;
    }
    const DWORD error = GetLastError();
    if (error != ERROR_WORKING_SET_QUOTA) return error;
    Sleep(quotaPause);
  }
}

class TgContextImpl final : public __TgContext {
 public:
  TgContextImpl(TgRequest& request, UniqueHandle event)
      : event_(std::move(event)), request_(request), size_(RequestSize(request)) {
    overlapped_.hEvent = event_.get();
  }

  void Wait() override {
    if (WaitForSingleObject(event_.get(), INFINITE) != WAIT_OBJECT_0) throw TgException{GetLastError()};
  }

  HANDLE Event() override { return event_.get(); }

  void Submit(HANDLE device) {
    if (inFlight_) throw TgException{ERROR_INVALID_PARAMETER};
    const DWORD error = IssueControl(device, request_, size_, &overlapped_);
    if (error == ERROR_IO_PENDING) {
      inFlight_ = true;
      return;
    }
    if (error != ERROR_SUCCESS) FailBySystemError(request_, error);
    if (!SetEvent(event_.get())) throw TgException{GetLastError()};
  }

  bool Poll(HANDLE device) {
    if (!inFlight_) return true;
    if (!HasOverlappedIoCompleted(&overlapped_)) return false;
    inFlight_ = false;
    DWORD returned = 0;
    if (!GetOverlappedResult(device, &overlapped_, &returned, FALSE)) {
      FailBySystemError(request_, GetLastError());
    }
    return true;
  }

 private:
  OVERLAPPED overlapped_{};
  UniqueHandle event_;
  bool inFlight_ = false;
  TgRequest& request_;  // the caller's
  DWORD size_;
};

class TgImpl final : public __TgHandle {
 public:
  explicit TgImpl(UniqueFile overlapped) : overlapped_(std::move(overlapped)) {}

  void Call(TgRequest& request) override {
    if (!synchronous_) synchronous_ = OpenDevice(0);
    if (!synchronous_) throw TgException{GetLastError()};
    const DWORD error = IssueControl(synchronous_.get(), request, RequestSize(request), nullptr);
    if (error != ERROR_SUCCESS) FailBySystemError(request, error);
  }

  void Submit(TgContext& context) override { static_cast<TgContextImpl&>(context).Submit(overlapped_.get()); }

  bool Poll(TgContext& context) override {
    return static_cast<TgContextImpl&>(context).Poll(overlapped_.get());
  }

  void Cancel() override {
    if (!CancelIo(overlapped_.get())) throw TgException{GetLastError()};
  }

 private:
  UniqueFile overlapped_;
  UniqueFile synchronous_;  // from the first Call on; closed first
};

}  // namespace

std::unique_ptr<Tg> OpenTg() noexcept {
  UniqueFile device = OpenDevice(FILE_FLAG_OVERLAPPED);
  if (!device) return nullptr;
  return std::unique_ptr<Tg>(new (std::nothrow) TgImpl(std::move(device)));
}

std::unique_ptr<TgContext> CreateTgContext(TgRequest& request) {
  UniqueHandle event(CreateEventW(nullptr, TRUE, FALSE, nullptr));
  if (!event) throw TgException{GetLastError()};
  return std::make_unique<TgContextImpl>(request, std::move(event));
}
