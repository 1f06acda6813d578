// Threads of the C runtime's kind. A thread counts as ended when all of its thread-local objects but the
// layer's own first one are gone, so whoever waited for it may unload the code that it ran.
#include <process.h>

#include <atomic>
#include <cerrno>
#include <system_error>
#include <thread>

#include "devices.h"
#include "kernel.h"

namespace platform {
namespace {

class Thread final : public Waitable {
 public:
  Thread() : Waitable("thread", false, false) {}
};

// Never reused, multiples of 4 as on Windows, so an identifier of an ended thread stays invalid.
DWORD NewThreadId() {
  static std::atomic<DWORD> last{0x100};
  return last += 4;
}

thread_local DWORD thisThread = 0;

// Made first in its thread, and so destroyed last of the thread's objects.
struct ThreadEnd {
  std::shared_ptr<Thread> thread;
  ~ThreadEnd() {
    CancelRequestsOfThisThread();
    std::lock_guard lock(TheKernel().mutex);
    thread->signalled = true;
    TheKernel().changed.notify_all();
  }
};

}  // namespace

DWORD ThisThreadId() {
  if (thisThread == 0) thisThread = NewThreadId();
  return thisThread;
}

}  // namespace platform

using namespace platform;

std::uintptr_t _beginthreadex(void* security, unsigned stackSize, unsigned(__stdcall* start)(void*),
                              void* argument, unsigned flags, unsigned* threadId) {
  if (CallFails("_beginthreadex", ERROR_NOT_ENOUGH_MEMORY)) {
    errno = EAGAIN;
    return 0;
  }
  if (security != nullptr || stackSize != 0 || flags != 0) Unsupported("_beginthreadex", "arguments");
  const DWORD id = NewThreadId();
  const auto thread = std::make_shared<Thread>();
  try {
    std::thread([=] {
      thisThread = id;
      thread_local ThreadEnd end{thread};
      start(argument);
    }).detach();
  } catch (const std::system_error&) {
    SetLastError(ERROR_NOT_ENOUGH_MEMORY);
    errno = EAGAIN;
    return 0;
  }
  if (threadId != nullptr) *threadId = id;
  return reinterpret_cast<std::uintptr_t>(AddHandle(thread));
}

DWORD WINAPI GetCurrentThreadId() {
  CallPasses("GetCurrentThreadId");
  return ThisThreadId();
}
