// host::Gate over the control device of the gate driver double (Windows builds, run under Wine). Starts the
// driver as the service `tsr_tg` from the file beside the executable; a running one that was built from
// something else is stopped first. The service stays running afterwards: starting it anew for each gate would
// cost more.
#include <windows.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <stdexcept>
#include <system_error>
#include <thread>
#include <tuple>
#include <type_traits>
#include <utility>

#include "host/driver/control.h"
#include "host/driver/gate.h"

namespace host {
namespace {

[[noreturn]] void Fail(const char* what) {
  throw std::system_error(static_cast<int>(GetLastError()), std::system_category(), what);
}

struct CloseHandleOf {
  void operator()(HANDLE handle) const { CloseHandle(handle); }
};
using OwnedHandle = std::unique_ptr<std::remove_pointer_t<HANDLE>, CloseHandleOf>;
struct CloseServiceOf {
  void operator()(SC_HANDLE handle) const { CloseServiceHandle(handle); }
};
using OwnedService = std::unique_ptr<std::remove_pointer_t<SC_HANDLE>, CloseServiceOf>;

OwnedHandle MakeEvent() {
  OwnedHandle event(CreateEventW(nullptr, TRUE, FALSE, nullptr));
  if (!event) Fail("CreateEventW");
  return event;
}

// One call of the control device. The buffers must outlive it; the destructor ends the call.
class Call {
 public:
  Call(HANDLE device, DWORD code, std::span<const std::byte> in, std::span<std::byte> out) : device_(device) {
    record_.hEvent = event_.get();
    const BOOL done =
        DeviceIoControl(device, code, const_cast<std::byte*>(in.data()), static_cast<DWORD>(in.size()),
                        out.data(), static_cast<DWORD>(out.size()), nullptr, &record_);
    if (!done && GetLastError() != ERROR_IO_PENDING) Fail("a call of the gate's control device");
    running_ = true;
  }
  ~Call() {
    if (!running_) return;
    CancelIoEx(device_, &record_);
    DWORD returned = 0;
    GetOverlappedResult(device_, &record_, &returned, TRUE);
  }
  Call(const Call&) = delete;
  Call& operator=(const Call&) = delete;

  HANDLE event() const { return event_.get(); }

  // Waits for the end; the bytes returned.
  DWORD Result() {
    DWORD returned = 0;
    running_ = false;
    if (!GetOverlappedResult(device_, &record_, &returned, TRUE)) Fail("a call of the gate's control device");
    return returned;
  }

 private:
  HANDLE device_;
  OwnedHandle event_ = MakeEvent();
  OVERLAPPED record_{};
  bool running_ = false;
};

std::filesystem::path DriverFile() {
  wchar_t path[MAX_PATH];
  const DWORD length = GetModuleFileNameW(nullptr, path, MAX_PATH);
  if (length == 0 || length == MAX_PATH) Fail("GetModuleFileNameW");
  return std::filesystem::path(path).replace_filename(L"tsr_tg.sys");
}

std::uint32_t StampInFile(const std::filesystem::path& file) {
  std::ifstream image(file, std::ios::binary);
  const auto read = [&](std::streamoff at) {
    std::uint32_t value = 0;
    image.seekg(at);
    image.read(reinterpret_cast<char*>(&value), sizeof value);
    return value;
  };
  const std::uint32_t stamp = read(static_cast<std::streamoff>(read(gateImageHeaderAt)) + gateStampAt);
  if (!image) throw std::runtime_error("cannot read the gate driver: " + file.string());
  if (stamp == 0) throw std::runtime_error("the gate driver has no stamp: " + file.string());
  return stamp;
}

OwnedService OpenDriverService(const std::filesystem::path& file) {
  const OwnedService manager(OpenSCManagerW(nullptr, nullptr, SC_MANAGER_ALL_ACCESS));
  if (!manager) Fail("OpenSCManagerW");
  OwnedService service(OpenServiceW(manager.get(), L"tsr_tg", SERVICE_ALL_ACCESS));
  if (service) {
    if (!ChangeServiceConfigW(service.get(), SERVICE_NO_CHANGE, SERVICE_NO_CHANGE, SERVICE_NO_CHANGE,
                              file.c_str(), nullptr, nullptr, nullptr, nullptr, nullptr, nullptr)) {
      Fail("ChangeServiceConfigW");
    }
    return service;
  }
  service.reset(CreateServiceW(manager.get(), L"tsr_tg", L"Tool gate test double", SERVICE_ALL_ACCESS,
                               SERVICE_KERNEL_DRIVER, SERVICE_DEMAND_START, SERVICE_ERROR_NORMAL,
                               file.c_str(), nullptr, nullptr, nullptr, nullptr, nullptr));
  if (!service) Fail("CreateServiceW");
  return service;
}

void Start(SC_HANDLE service) {
  if (!StartServiceW(service, 0, nullptr) && GetLastError() != ERROR_SERVICE_ALREADY_RUNNING) {
    Fail("StartServiceW (the gate driver)");
  }
}

constexpr auto patience = std::chrono::seconds(5);
constexpr DWORD pendingTime = 100;  // milliseconds

// Runs `attempt` until it answers true, for a while.
template <class Attempt>
bool Eventually(Attempt attempt) {
  const auto end = std::chrono::steady_clock::now() + patience;
  while (!attempt()) {
    if (std::chrono::steady_clock::now() > end) return false;
    Sleep(5);
  }
  return true;
}

void Stop(SC_HANDLE service) {
  SERVICE_STATUS status{};
  if (!ControlService(service, SERVICE_CONTROL_STOP, &status)) Fail("ControlService (the gate driver)");
  const bool stopped = Eventually(
      [&] { return QueryServiceStatus(service, &status) && status.dwCurrentState == SERVICE_STOPPED; });
  if (!stopped) throw std::runtime_error("the gate driver does not stop");
}

// The control device, claimed, and the stamp of the driver behind it; no device when no driver runs. The
// handle of an owner that has just ended may be closed a little after its process.
std::pair<OwnedHandle, std::uint32_t> Claim() {
  const HANDLE opened = CreateFileW(L"\\\\.\\tsr_tg_host", GENERIC_READ | GENERIC_WRITE, 0, nullptr,
                                    OPEN_EXISTING, FILE_FLAG_OVERLAPPED, nullptr);
  if (opened == INVALID_HANDLE_VALUE) return {};
  OwnedHandle device(opened);
  std::uint32_t stamp = 0;
  const bool claimed = Eventually([&] {
    try {
      Call(device.get(), gateClaim, {}, std::as_writable_bytes(std::span(&stamp, 1))).Result();
      return true;
    } catch (const std::system_error& error) {
      if (error.code().value() != ERROR_BUSY) throw;
      return false;
    }
  });
  if (!claimed) throw std::runtime_error("another host has the gate");
  return {std::move(device), stamp};
}

OwnedHandle StartAndClaim() {
  const auto file = DriverFile();
  const auto wanted = StampInFile(file);
  auto [device, loaded] = Claim();
  if (device && loaded == wanted) return std::move(device);

  const auto service = OpenDriverService(file);
  if (device) {
    device.reset();
    Stop(service.get());
  }
  Start(service.get());
  std::tie(device, loaded) = Claim();
  if (!device) Fail("opening the gate's control device");
  if (loaded != wanted) throw std::runtime_error("the gate driver that runs is not " + file.string());
  return std::move(device);
}

// The NTSTATUS that a control call turns into each system error.
std::int32_t StatusFor(std::uint32_t systemError) {
  static constexpr std::pair<std::uint32_t, std::uint32_t> table[] = {
      {0, 0},
      {ERROR_FILE_NOT_FOUND, 0xC000000F},
      {ERROR_ACCESS_DENIED, 0xC0000022},
      {ERROR_NOT_READY, 0xC00000A3},
      {ERROR_GEN_FAILURE, 0xC0000001},
      {ERROR_NOT_SUPPORTED, 0xC00000BB},
      {ERROR_INVALID_PARAMETER, 0xC000000D},
      {ERROR_OPERATION_ABORTED, 0xC0000120},
      {ERROR_RETRY, 0xC000022D},
      {ERROR_NO_SYSTEM_RESOURCES, 0xC000009A},
      {ERROR_WORKING_SET_QUOTA, 0xC00000A1},
  };
  const auto* found = std::ranges::find(table, systemError, &std::pair<std::uint32_t, std::uint32_t>::first);
  if (found == std::end(table)) {
    throw std::runtime_error("the gate driver has no status for error " + std::to_string(systemError));
  }
  return static_cast<std::int32_t>(found->second);
}

class DriverGate final : public Gate {
 public:
  DriverGate() : device_(StartAndClaim()), stop_(MakeEvent()), server_([this] { ServeRequests(); }) {}

  ~DriverGate() override {
    SetEvent(stop_.get());
    server_.join();
  }

  void Serve(Answer answer) override {
    const std::lock_guard lock(answerMutex_);
    answer_ = std::move(answer);
  }

  void Push(std::span<const std::byte> envelope) override { Send(gatePush, envelope); }

  void FailNext(const Fault& fault) override {
    const GateFault wire{fault.request, StatusFor(fault.systemError), fault.status, fault.pendFirst};
    Send(gateFault, std::as_bytes(std::span(&wire, 1)));
  }

  bool WaitIdle(std::chrono::milliseconds limit) override {
    Call wait(device_.get(), gateAwaitIdle, {}, {});
    if (WaitForSingleObject(wait.event(), static_cast<DWORD>(limit.count())) != WAIT_OBJECT_0) return false;
    wait.Result();
    return true;
  }

  void SetPresent(bool present) override {
    const std::uint32_t wire = present;
    Send(gatePresent, std::as_bytes(std::span(&wire, 1)));
  }

  GateFacts Facts() override {
    std::vector<std::byte> report(gateRoom);
    // Wine keeps a file while the driver finishes a request on it, so a close that the guest has already made
    // may reach the driver one call late: after the first of these.
    Call(device_.get(), gateCounts, {}, report).Result();
    report.resize(Call(device_.get(), gateCounts, {}, report).Result());
    ::GateCounts counts{};
    std::memcpy(&counts, report.data(), sizeof counts);
    GateFacts facts{counts.opens, counts.closes, counts.receives, counts.sends, counts.cancelled, {}};
    const char* text = reinterpret_cast<const char*>(report.data() + sizeof counts);
    for (const char* end = text + counts.breachBytes; text < end; text += facts.breaches.back().size() + 1) {
      facts.breaches.emplace_back(text);
    }
    return facts;
  }

 private:
  void Send(DWORD code, std::span<const std::byte> in) { Call(device_.get(), code, in, {}).Result(); }

  // The server's thread: fetches the guest's commands and answers them, until the gate stops.
  void ServeRequests() {
    std::vector<std::byte> room(gateRoom);
    for (;;) {
      Call fetch(device_.get(), gateFetch, {}, room);
      const HANDLE events[] = {stop_.get(), fetch.event()};
      if (WaitForMultipleObjects(2, events, FALSE, INFINITE) != WAIT_OBJECT_0 + 1) return;
      fetch.Result();
      GateEvent event{};
      std::memcpy(&event, room.data(), sizeof event);
      if (event.id == 0) {
        // The next fetch ends a receive that was to pend first. A guest looks at its receive right after it
        // has submitted it, and is to find it running then.
        if (WaitForSingleObject(stop_.get(), pendingTime) == WAIT_OBJECT_0) return;
        continue;
      }
      Respond(event.id, std::span(room).subspan(sizeof event, event.size));
    }
  }

  void Respond(std::uint32_t id, std::span<const std::byte> envelope) {
    const Reply reply = AnswerTo(envelope);
    const GateAnswer header{id, reply.status, reply.returned, static_cast<std::uint32_t>(reply.bytes.size())};
    std::vector<std::byte> wire(sizeof header + reply.bytes.size());
    std::memcpy(wire.data(), &header, sizeof header);
    std::ranges::copy(reply.bytes, wire.begin() + sizeof header);
    Send(gateAnswer, wire);
  }

  Reply AnswerTo(std::span<const std::byte> envelope) {
    const std::lock_guard lock(answerMutex_);
    if (answer_) return answer_(envelope);
    Reply reply;
    reply.bytes.assign(envelope.begin(), envelope.begin() + 16);
    reply.bytes.resize(20);  // the same header without data; its result is 0 already
    return reply;
  }

  OwnedHandle device_;
  OwnedHandle stop_;
  std::mutex answerMutex_;
  Answer answer_;
  std::thread server_;
};

}  // namespace

std::unique_ptr<Gate> CreateGate() {
  return std::make_unique<DriverGate>();
}

}  // namespace host
