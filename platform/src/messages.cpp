// Thread message queues. A queue comes into being when its thread first calls one of these functions, and
// only then can others post to it. What a look at the queue has left there no longer counts as input: it ends
// no wait but those that ask for it.
#include <deque>
#include <map>
#include <optional>

#include "kernel.h"

namespace platform {
namespace {

struct Queue {
  std::deque<MSG> posted;
  std::optional<int> quit;  // the exit code of a quit that is due once `posted` holds nothing that matches
  bool newInput = false;    // something came since the thread last looked
};

// By thread identifier, under the kernel mutex; never destroyed.
std::map<DWORD, Queue*>& Queues() {
  static auto* queues = new std::map<DWORD, Queue*>;
  return *queues;
}

struct QueueOfThread {
  Queue queue;
  QueueOfThread() {
    std::lock_guard lock(TheKernel().mutex);
    Queues()[ThisThreadId()] = &queue;
  }
  ~QueueOfThread() {
    std::lock_guard lock(TheKernel().mutex);
    Queues().erase(ThisThreadId());
  }
};

Queue& OwnQueue() {
  thread_local QueueOfThread own;
  return own.queue;
}

void NoteInput(Queue& queue) {
  queue.newInput = true;
  TheKernel().changed.notify_all();
}

}  // namespace
}  // namespace platform

using namespace platform;

BOOL WINAPI PeekMessageW(MSG* message, HWND window, UINT first, UINT last, UINT remove) {
  CallPasses("PeekMessageW");
  if (window != nullptr) Unsupported("PeekMessageW", "a window");
  if ((remove & ~PM_REMOVE) != 0) Unsupported("PeekMessageW", "flags");
  Queue& queue = OwnQueue();
  std::lock_guard lock(TheKernel().mutex);
  queue.newInput = false;
  for (auto entry = queue.posted.begin(); entry != queue.posted.end(); ++entry) {
    if ((first != 0 || last != 0) && (entry->message < first || entry->message > last)) continue;
    *message = *entry;
    if (remove == PM_REMOVE) queue.posted.erase(entry);
    return TRUE;
  }
  if (!queue.quit) return FALSE;
  // The range does not hold back a quit.
  *message = {nullptr, WM_QUIT, static_cast<WPARAM>(*queue.quit), 0};
  if (remove == PM_REMOVE) queue.quit.reset();
  return TRUE;
}

LONG_PTR WINAPI DispatchMessageW(const MSG* message) {
  CallPasses("DispatchMessageW");
  if (message->hwnd != nullptr) Unsupported("DispatchMessageW", "a window");
  return 0;
}

BOOL WINAPI PostThreadMessageW(DWORD thread, UINT message, WPARAM wParam, LPARAM lParam) {
  if (CallFails("PostThreadMessageW", ERROR_INVALID_THREAD_ID)) return FALSE;
  std::lock_guard lock(TheKernel().mutex);
  const auto entry = Queues().find(thread);
  if (entry == Queues().end()) {
    SetLastError(ERROR_INVALID_THREAD_ID);
    return FALSE;
  }
  entry->second->posted.push_back({nullptr, message, wParam, lParam});
  NoteInput(*entry->second);
  return TRUE;
}

void WINAPI PostQuitMessage(int exitCode) {
  CallPasses("PostQuitMessage");
  Queue& queue = OwnQueue();
  std::lock_guard lock(TheKernel().mutex);
  queue.quit = exitCode;
  NoteInput(queue);
}

DWORD WINAPI MsgWaitForMultipleObjectsEx(DWORD count, const HANDLE* handles, DWORD milliseconds,
                                         DWORD wakeMask, DWORD flags) {
  if (CallFails("MsgWaitForMultipleObjectsEx", ERROR_NOT_ENOUGH_MEMORY)) return WAIT_FAILED;
  if ((flags & ~MWMO_INPUTAVAILABLE) != 0) Unsupported("MsgWaitForMultipleObjectsEx", "flags");
  const Queue& queue = OwnQueue();
  if (count >= MAXIMUM_WAIT_OBJECTS) {  // the queue takes one of the places
    SetLastError(ERROR_INVALID_PARAMETER);
    return WAIT_FAILED;
  }
  Waitables objects;
  if (!FindWaitables(count, handles, objects)) return WAIT_FAILED;
  return WaitForAny(objects, milliseconds, [&] {
    if ((wakeMask & QS_POSTMESSAGE) == 0) return false;
    return queue.newInput || (flags != 0 && (!queue.posted.empty() || queue.quit));
  });
}
