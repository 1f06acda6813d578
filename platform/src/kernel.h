// What waits and whatever ends a wait share: one mutex and one condition for the whole process.
// Every field of a Waitable, a message queue and a device request is read and written under that mutex.
#pragma once

#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <vector>

#include "layer.h"

namespace platform {

struct Kernel {
  std::mutex mutex;
  std::condition_variable changed;  // notify_all after every change that can end a wait
};
Kernel& TheKernel();

// An object that a wait can name.
class Waitable : public KernelObject {
 public:
  Waitable(const char* kind, bool isAutoReset, bool isSignalled)
      : KernelObject(kind), autoReset(isAutoReset), signalled(isSignalled) {}
  const bool autoReset;  // the wait that sees the signal takes it
  bool signalled;
};

class Event final : public Waitable {
 public:
  Event(bool isAutoReset, bool isSignalled) : Waitable("event", isAutoReset, isSignalled) {}
};

// Fills `found` with the objects of the handles, in order; false, with the last error set, when one of them
// cannot be waited for.
using Waitables = std::vector<std::shared_ptr<Waitable>>;
bool FindWaitables(DWORD count, const HANDLE* handles, Waitables& found);

// Waits for any of the objects, or for `hasInput` when that is given, which is asked under the mutex:
// WAIT_OBJECT_0 plus the index of the first object signalled, plus the number of objects for the input, or
// WAIT_TIMEOUT.
DWORD WaitForAny(const Waitables& objects, DWORD milliseconds, const std::function<bool()>& hasInput = {});

DWORD ThisThreadId();

}  // namespace platform
