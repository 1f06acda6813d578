// Devices of the guest and control requests to them. A request ends exactly once: before Control returns it
// ends the call itself; later, on whichever thread, it ends the overlapped record or the synchronous wait.
#include "devices.h"

#include <platform/control.h>
#include <winioctl.h>

#include <algorithm>
#include <utility>

#include "kernel.h"

namespace platform {
namespace {

// Error codes travel in an OVERLAPPED record as the status that the system makes of them.
constexpr ULONG_PTR statusOfError = 0xC0070000;

class Request final : public IoRequest {
 public:
  Request(std::shared_ptr<Device> target, const void* handle, DWORD code, void* buffer, DWORD size)
      : device(std::move(target)), owner(handle), code_(code), buffer_(buffer), size_(size) {}

  DWORD code() const override { return code_; }
  void* buffer() const override { return buffer_; }
  DWORD size() const override { return size_; }
  void Complete(DWORD withError, DWORD withReturned) override;

  // Tells an overlapped caller, under the kernel mutex; with the status written, the record may be gone.
  void WriteRecord() {
    record->InternalHigh = returned;
    __atomic_store_n(&record->Internal, error == 0 ? 0 : statusOfError | error, __ATOMIC_RELEASE);
    event->signalled = true;
  }

  const std::shared_ptr<Device> device;
  const void* const owner;  // the handle's object, only to be compared
  const DWORD thread = ThisThreadId();
  LPOVERLAPPED record = nullptr;  // null: synchronous
  std::shared_ptr<Event> event;   // of the record
  bool outstanding = false;
  bool cancelled = false;
  bool done = false;
  DWORD error = 0;
  DWORD returned = 0;

 private:
  const DWORD code_;
  void* const buffer_;
  const DWORD size_;
};

// The requests that devices have kept, under the kernel mutex; never destroyed, as threads outlive main.
std::vector<std::shared_ptr<Request>>& Outstanding() {
  static auto* requests = new std::vector<std::shared_ptr<Request>>;
  return *requests;
}

void Request::Complete(DWORD withError, DWORD withReturned) {
  std::shared_ptr<Request> self;  // its release may destroy the device, so it comes after the unlocking
  std::lock_guard lock(TheKernel().mutex);
  if (done) Unsupported("IoRequest::Complete", "a second completion");
  done = true;
  error = withError;
  returned = withReturned;
  if (!outstanding) return;
  auto& all = Outstanding();
  const auto entry =
      std::find_if(all.begin(), all.end(), [this](const auto& one) { return one.get() == this; });
  self = std::move(*entry);
  all.erase(entry);
  if (record != nullptr) WriteRecord();
  TheKernel().changed.notify_all();
}

template <class Chosen>
void CancelOutstanding(Chosen chosen) {
  std::vector<std::shared_ptr<Request>> requests;
  {
    std::lock_guard lock(TheKernel().mutex);
    for (const auto& request : Outstanding()) {
      if (!chosen(*request) || std::exchange(request->cancelled, true)) continue;
      requests.push_back(request);
    }
  }
  for (const auto& request : requests) request->device->Cancel(request);
}

class DeviceHandle final : public KernelObject {
 public:
  DeviceHandle(std::shared_ptr<Device> target, DWORD access, bool isOverlapped)
      : KernelObject("device"), device(std::move(target)), overlapped(isOverlapped), access_(access) {}
  ~DeviceHandle() override {
    CancelOutstanding([this](const Request& request) { return request.owner == this; });
    device->Close();
  }

  bool Grants(DWORD needed) const {
    return ((needed & FILE_READ_ACCESS) == 0 || (access_ & GENERIC_READ) != 0) &&
           ((needed & FILE_WRITE_ACCESS) == 0 || (access_ & GENERIC_WRITE) != 0);
  }

  const std::shared_ptr<Device> device;
  const bool overlapped;

 private:
  const DWORD access_;
};

struct NameLess {
  bool operator()(const std::u16string& a, const std::u16string& b) const { return CompareNames(a, b) < 0; }
};
struct DeviceNames {
  std::mutex mutex;
  std::map<std::u16string, std::shared_ptr<Device>, NameLess> devices;
};
DeviceNames& Devices() {
  static auto* names = new DeviceNames;
  return *names;
}

}  // namespace

void SetDevice(const std::string& name, std::shared_ptr<Device> device) {
  DeviceNames& names = Devices();
  std::lock_guard lock(names.mutex);
  names.devices[ToUtf16(name)].swap(device);  // the former one goes with the parameter, without the lock
}

bool IsDeviceName(std::u16string_view path) {
  return path.starts_with(u"\\\\.\\");
}

HANDLE OpenDevice(std::u16string_view name, DWORD access, DWORD share, DWORD flags) {
  if ((flags & ~(FILE_FLAG_OVERLAPPED | FILE_ATTRIBUTE_NORMAL)) != 0) Unsupported("OpenDevice", "flags");
  if ((access & ~(GENERIC_READ | GENERIC_WRITE)) != 0) Unsupported("OpenDevice", "access");
  std::shared_ptr<Device> device;
  {
    DeviceNames& names = Devices();
    std::lock_guard lock(names.mutex);
    const auto entry = names.devices.find(std::u16string(name));
    if (entry != names.devices.end()) device = entry->second;
  }
  const bool overlapped = (flags & FILE_FLAG_OVERLAPPED) != 0;
  const DWORD error = device ? device->Open(access, share, overlapped) : ERROR_FILE_NOT_FOUND;
  if (error != 0) {
    SetLastError(error);
    return INVALID_HANDLE_VALUE;
  }
  return AddHandle(std::make_shared<DeviceHandle>(std::move(device), access, overlapped));
}

void CancelRequestsOfThisThread() {
  CancelOutstanding([](const Request& request) { return request.thread == ThisThreadId(); });
}

}  // namespace platform

using namespace platform;

BOOL WINAPI DeviceIoControl(HANDLE device, DWORD code, LPVOID in, DWORD inSize, LPVOID out, DWORD outSize,
                            LPDWORD returned, LPOVERLAPPED overlapped) {
  if (CallFails("DeviceIoControl", ERROR_GEN_FAILURE)) return FALSE;
  if ((code & 3) != METHOD_BUFFERED) Unsupported("DeviceIoControl", "method");
  if (in != out || inSize != outSize) Unsupported("DeviceIoControl", "input and output apart");
  auto handle = Find<DeviceHandle>(device);
  if (!handle) return FALSE;
  if (handle->overlapped != (overlapped != nullptr)) {
    Unsupported("DeviceIoControl", "a record for a synchronous handle, or none for an overlapped one");
  }
  if (!handle->Grants(code >> 14 & 3)) {
    SetLastError(ERROR_ACCESS_DENIED);
    return FALSE;
  }
  const auto request = std::make_shared<Request>(handle->device, handle.get(), code, in, inSize);
  Kernel& kernel = TheKernel();
  if (overlapped != nullptr) {
    request->record = overlapped;
    request->event = Find<Event>(overlapped->hEvent);
    if (!request->event) return FALSE;
    if (request->event->autoReset) Unsupported("DeviceIoControl", "an auto-reset event");
    std::lock_guard lock(kernel.mutex);
    overlapped->Internal = STATUS_PENDING;
    request->event->signalled = false;
  }
  request->device->Control(request);

  std::unique_lock lock(kernel.mutex);
  if (!request->done) {
    request->outstanding = true;
    Outstanding().push_back(request);
    if (overlapped != nullptr) {
      SetLastError(ERROR_IO_PENDING);
      return FALSE;
    }
    // The wait must not keep the handle's object: closing the handle is one of the ways to end it.
    lock.unlock();
    handle.reset();
    lock.lock();
    kernel.changed.wait(lock, [&] { return request->done; });
  }
  if (request->error != 0) {  // an overlapped record and its event are not told of an immediate failure
    SetLastError(request->error);
    return FALSE;
  }
  if (returned != nullptr) *returned = request->returned;
  if (overlapped != nullptr) {
    request->WriteRecord();
    kernel.changed.notify_all();
  }
  return TRUE;
}

BOOL WINAPI GetOverlappedResult(HANDLE file, LPOVERLAPPED overlapped, LPDWORD transferred, BOOL wait) {
  if (CallFails("GetOverlappedResult", ERROR_GEN_FAILURE)) return FALSE;
  if (!Find<DeviceHandle>(file)) return FALSE;
  if (!HasOverlappedIoCompleted(overlapped)) {
    if (!wait) {
      SetLastError(ERROR_IO_INCOMPLETE);
      return FALSE;
    }
    std::unique_lock lock(TheKernel().mutex);
    TheKernel().changed.wait(lock, [=] { return HasOverlappedIoCompleted(overlapped); });
  }
  *transferred = static_cast<DWORD>(overlapped->InternalHigh);
  if (overlapped->Internal == 0) return TRUE;
  SetLastError(static_cast<DWORD>(overlapped->Internal & ~statusOfError));
  return FALSE;
}

BOOL WINAPI CancelIo(HANDLE file) {
  if (CallFails("CancelIo", ERROR_INVALID_HANDLE)) return FALSE;
  const auto handle = Find<DeviceHandle>(file);
  if (!handle) return FALSE;
  CancelOutstanding([&](const Request& request) {
    return request.owner == handle.get() && request.thread == ThisThreadId();
  });
  return TRUE;
}
