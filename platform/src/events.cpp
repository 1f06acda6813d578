// Events and waits. A wait holds shares of its objects, so a handle closed during the wait does not disturb
// it.
#include <chrono>

#include "kernel.h"

namespace platform {

// Never destroyed: threads of the program may outlive the end of main.
Kernel& TheKernel() {
  static auto* kernel = new Kernel;
  return *kernel;
}

bool FindWaitables(DWORD count, const HANDLE* handles, Waitables& found) {
  for (DWORD i = 0; i < count; ++i) {
    found.push_back(Find<Waitable>(handles[i]));
    if (!found.back()) return false;
  }
  return true;
}

DWORD WaitForAny(const Waitables& objects, DWORD milliseconds, const std::function<bool()>& hasInput) {
  DWORD result = WAIT_TIMEOUT;
  const auto isOver = [&] {
    for (std::size_t i = 0; i < objects.size(); ++i) {
      if (!objects[i]->signalled) continue;
      if (objects[i]->autoReset) objects[i]->signalled = false;
      result = WAIT_OBJECT_0 + static_cast<DWORD>(i);
      return true;
    }
    if (!hasInput || !hasInput()) return false;
    result = WAIT_OBJECT_0 + static_cast<DWORD>(objects.size());
    return true;
  };
  std::unique_lock lock(TheKernel().mutex);
  if (milliseconds == INFINITE) {
    TheKernel().changed.wait(lock, isOver);
  } else {
    TheKernel().changed.wait_for(lock, std::chrono::milliseconds(milliseconds), isOver);
  }
  return result;
}

}  // namespace platform

using namespace platform;

HANDLE WINAPI CreateEventW(LPSECURITY_ATTRIBUTES security, BOOL manualReset, BOOL initialState,
                           LPCWSTR name) {
  if (CallFails("CreateEventW", ERROR_NO_SYSTEM_RESOURCES)) return nullptr;
  if (security != nullptr || name != nullptr) Unsupported("CreateEventW", "security or a name");
  SetLastError(ERROR_SUCCESS);
  return AddHandle(std::make_shared<Event>(!manualReset, initialState != FALSE));
}

BOOL WINAPI SetEvent(HANDLE event) {
  if (CallFails("SetEvent", ERROR_INVALID_HANDLE)) return FALSE;
  const auto object = Find<Event>(event);
  if (!object) return FALSE;
  std::lock_guard lock(TheKernel().mutex);
  object->signalled = true;
  TheKernel().changed.notify_all();
  return TRUE;
}

DWORD WINAPI WaitForSingleObject(HANDLE handle, DWORD milliseconds) {
  if (CallFails("WaitForSingleObject", ERROR_INVALID_HANDLE)) return WAIT_FAILED;
  Waitables objects;
  return FindWaitables(1, &handle, objects) ? WaitForAny(objects, milliseconds) : WAIT_FAILED;
}

DWORD WINAPI WaitForMultipleObjects(DWORD count, const HANDLE* handles, BOOL waitAll, DWORD milliseconds) {
  if (CallFails("WaitForMultipleObjects", ERROR_INVALID_HANDLE)) return WAIT_FAILED;
  if (waitAll) Unsupported("WaitForMultipleObjects", "waiting for all");
  if (count == 0 || count > MAXIMUM_WAIT_OBJECTS) {
    SetLastError(ERROR_INVALID_PARAMETER);
    return WAIT_FAILED;
  }
  Waitables objects;
  return FindWaitables(count, handles, objects) ? WaitForAny(objects, milliseconds) : WAIT_FAILED;
}
