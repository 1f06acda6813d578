// What every family of calls in the layer shares: the gate, the handle table, guest paths and text.
// A call that can fail starts with `if (CallFails("Name", ERROR_...)) return <its failure>;`; one that cannot
// starts with `CallPasses("Name");`. Families call each other through functions of this file, never through
// the public calls, so that one call of the module passes one gate.
#pragma once

#include <windows.h>

#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace platform {

// ---- Gate ----------------------------------------------------------------------------------------------

// True when the fault plan fails this call; the thread's last error is then `plausibleError` (or the plan's),
// which PlannedError() gives again for calls that return their error.
bool CallFails(const char* function, DWORD plausibleError);
void CallPasses(const char* function);
DWORD PlannedError();

// An argument or a flag that the layer does not implement: message on standard error, then abort.
[[noreturn]] void Unsupported(const char* function, const char* what);

// ---- Handles -------------------------------------------------------------------------------------------

// Something a handle names. `kind` is a string literal and the census' key.
class Object {
 public:
  explicit Object(const char* kind) : kind_(kind) {}
  virtual ~Object() = default;
  Object(const Object&) = delete;
  Object& operator=(const Object&) = delete;
  const char* kind() const { return kind_; }

 private:
  const char* kind_;
};

// Handles are never null, never INVALID_HANDLE_VALUE and not reused. All three are safe from any thread.
void* AddHandle(std::shared_ptr<Object> object);
std::shared_ptr<Object> FindObject(const void* handle);    // null for an unknown handle
std::shared_ptr<Object> RemoveHandle(const void* handle);  // null for an unknown handle

// The object of a handle when it is a T; otherwise null with the last error ERROR_INVALID_HANDLE.
template <class T>
std::shared_ptr<T> Find(const void* handle) {
  auto object = std::dynamic_pointer_cast<T>(FindObject(handle));
  if (!object) SetLastError(ERROR_INVALID_HANDLE);
  return object;
}

// What CloseHandle closes.
class KernelObject : public Object {
 public:
  using Object::Object;
};

// For the call that closes handles of T: takes the handle out of the table. Null with the last error
// ERROR_INVALID_HANDLE for an unknown one; a handle that another call closes is a message and an abort.
template <class T>
std::shared_ptr<T> Close(const char* function, const void* handle) {
  if (!FindObject(handle)) {
    SetLastError(ERROR_INVALID_HANDLE);
    return nullptr;
  }
  if (!Find<T>(handle)) Unsupported(function, "a handle of another kind");
  return std::static_pointer_cast<T>(RemoveHandle(handle));
}

// Counts what has no handle (interfaces, local memory) in the census, for as long as the guard lives.
class Counted {
 public:
  explicit Counted(const char* kind);
  ~Counted();
  Counted(const Counted&) = delete;
  Counted& operator=(const Counted&) = delete;

 private:
  const char* kind_;
};

// ---- Guest paths ---------------------------------------------------------------------------------------

// Why a guest path names nothing on the host, or the place it names (which need not exist; all of its
// parents do). Names match without regard to case; "/" and "\" both separate; a relative path starts at C:\.
struct HostPath {
  DWORD error = 0;               // 0, ERROR_PATH_NOT_FOUND or ERROR_INVALID_NAME
  bool exists = false;           // the last component exists (as a file or a folder)
  std::filesystem::path path{};  // in the spelling that the host has where it exists
};
HostPath ResolvePath(std::u16string_view guestPath);

// ---- Text ----------------------------------------------------------------------------------------------

std::string ToUtf8(std::u16string_view text);                   // unpaired surrogates become U+FFFD
std::u16string ToUtf16(std::string_view text);                  // malformed bytes become U+FFFD
char16_t Upcase(char16_t unit);                                 // simple case mapping, as names are compared
bool EqualNames(std::u16string_view a, std::u16string_view b);  // without regard to case
int CompareNames(std::u16string_view a, std::u16string_view b);

}  // namespace platform
