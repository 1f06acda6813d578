// Control of the native layer, for tests and tools only: where the guest lives, which devices exist, which
// handles are open, and which call is to fail. Nothing in the module includes this file.
#pragma once

#include <windows.h>

#include <cstddef>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace platform {

// ---- Guest ---------------------------------------------------------------------------------------------

// The host folder that stands for drive C of the guest; created when missing. The environment variable
// PLATFORM_GUEST_ROOT sets it when the layer is loaded; without either, file calls abort with a message.
void SetGuestRoot(const std::filesystem::path& folder);
std::filesystem::path GuestRoot();

// The Windows version that the layer reports, fixed when it is loaded: PLATFORM_WINDOWS_VERSION
// ("major.minor"), or 10.0 without it.
struct WindowsVersion {
  DWORD major;
  DWORD minor;
};
WindowsVersion ReportedVersion();

// Empties all hives and brings back what a new user's hives hold: the predefined keys and
// HKEY_CURRENT_USER\Software\Classes.
void ResetRegistry();
// The registry as text and back: UTF-8, one "[path]" line per key, values sorted by name, so that equal
// registries give equal texts. `Load` replaces everything. Of a malformed text it takes nothing and throws
// std::invalid_argument, whose message has the number of the line ("line 7: ...") and the line's beginning.
std::string SaveRegistry();
void LoadRegistry(const std::string& text);

// Registry: every open, creation and deletion of this key (a path as SaveRegistry prints it; the key need not
// exist) fails with ERROR_ACCESS_DENIED, until lifted or until the registry is reset or loaded. Throws
// std::invalid_argument for what is no such path.
void DenyKey(const std::string& path, bool deny);

// ---- Devices -------------------------------------------------------------------------------------------

// One control request that a device works on. The buffers belong to the caller and stay valid until
// Complete has been called.
class IoRequest {
 public:
  virtual ~IoRequest() = default;
  virtual DWORD code() const = 0;
  virtual void* buffer() const = 0;  // input and output are the same memory
  virtual DWORD size() const = 0;
  // Ends the request, once, from any thread: `error` 0 is success with `returned` bytes.
  virtual void Complete(DWORD error, DWORD returned) = 0;
};

// A device of the guest. All calls arrive on the thread that made the platform call, without a lock held.
class Device {
 public:
  virtual ~Device() = default;
  // 0, or the error with which the open fails.
  virtual DWORD Open(DWORD access, DWORD share, bool overlapped) = 0;
  virtual void Close() = 0;
  // Returns at once; the request is completed now or later. An overlapped caller sees a request that was
  // completed before Control returned as an immediate completion; a synchronous one waits for Complete.
  virtual void Control(std::shared_ptr<IoRequest> request) = 0;
  // The issuing thread cancels: complete `request` (usually with ERROR_OPERATION_ABORTED) now or later.
  virtual void Cancel(const std::shared_ptr<IoRequest>& request) = 0;
};

// Devices by full name, for example "\\\\.\\tsr_tg"; a null device removes the name.
void SetDevice(const std::string& name, std::shared_ptr<Device> device);

// ---- Census --------------------------------------------------------------------------------------------

// Open handles and interfaces by kind ("event", "thread", "file", "find", "key", "module", "update", "com",
// "local" ...), kinds with none left out.
std::map<std::string, std::size_t> Census();

// ---- Fault plan ----------------------------------------------------------------------------------------

// Every call of the layer passes one gate. While a plan is armed, calls are counted from 1 in the order in
// which they arrive, whatever thread they come from.
struct FaultPlan {
  enum class Action { None, Fail, EndProcess };
  Action action = Action::None;
  std::size_t call = 0;            // the number of the call to act on; 0: none
  std::string function{};          // when named, `call` counts the calls of this function alone
  bool repeat = false;             // every later call of the same function fails as well, until disarmed
  DWORD error = 0;                 // 0: the function's own plausible error
  std::function<void()> ending{};  // EndProcess: runs before the process ends with status 86
  // Runs before each call, on its thread; its own calls pass it too. What it throws leaves the call.
  std::function<void(const std::string& function)> before{};
};
void ArmFaultPlan(FaultPlan plan);
// Ends the plan and returns the names of the calls that passed, in order (number n is at n - 1).
std::vector<std::string> DisarmFaultPlan();
// How many calls the plan that was armed last has failed.
std::size_t CallsFailed();

// Calls by function name since the last reset, counted with and without a plan; for cost tests.
std::map<std::string, std::size_t> CallCounts();
void ResetCallCounts();

// ---- What the shell was told ---------------------------------------------------------------------------

// Change notifications (SHChangeNotify) since the last call, as event identifiers; clears the list.
std::vector<LONG> TakeChangeNotifications();

}  // namespace platform
