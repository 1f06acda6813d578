// Start and stop. The start parameters live on the starter's stack, so the worker reads them before it
// signals that it is ready and never again, and the starter leaves only once the worker has signalled or
// ended.
#include "frame/worker.h"

#include <windows.h>

#include <process.h>

#include <new>

#include "common/handles.h"
#include "frame/event_loop.h"

namespace {

ToolWorker* theWorker = nullptr;

struct WorkerStartup {
  ToolWorker* worker;
  HANDLE readyEvent;  // the starter's
};

unsigned __stdcall RunWorker(void* argument) {
  MSG message;
  PeekMessageW(&message, nullptr, stopMessage, stopMessage, PM_NOREMOVE);  // brings the queue into being
  std::unique_ptr<Tg> gate = OpenTg();
  if (!gate) return 0;
  const WorkerStartup startup = *static_cast<WorkerStartup*>(argument);
  if (!SetEvent(startup.readyEvent)) return 0;
  startup.worker->gate = std::move(gate);
  RunEventLoop(*startup.worker);
  return 0;
}

// Ends a worker whose start could not be waited for; it may not have made its queue yet, so the message is
// posted until the thread is gone.
void EndThread(HANDLE thread, DWORD threadId) {
  while (WaitForSingleObject(thread, 0) != WAIT_OBJECT_0) {
    PostThreadMessageW(threadId, stopMessage, 0, 0);
    Sleep(10);
  }
}

}  // namespace

bool StartWorker() noexcept {
  if (theWorker != nullptr) return true;
  std::unique_ptr<ToolWorker> worker(new (std::nothrow) ToolWorker);
  if (!worker) return false;
  UniqueHandle ready(CreateEventW(nullptr, TRUE, FALSE, nullptr));
  if (!ready) return false;
  WorkerStartup startup{worker.get(), ready.get()};
  unsigned threadId = 0;
  UniqueHandle thread(
      reinterpret_cast<HANDLE>(_beginthreadex(nullptr, 0, RunWorker, &startup, 0, &threadId)));
  if (!thread) return false;

  const HANDLE either[] = {ready.get(), thread.get()};
  const DWORD woken = WaitForMultipleObjects(2, either, FALSE, INFINITE);
  if (woken != WAIT_OBJECT_0 && woken != WAIT_OBJECT_0 + 1) EndThread(thread.get(), threadId);
  ready.reset();
  if (woken != WAIT_OBJECT_0) return false;
  worker->thread = thread.release();
  worker->threadId = threadId;
  theWorker = worker.release();
  return true;
}

bool StopWorker() noexcept {
  if (theWorker == nullptr) return true;
  if (theWorker->thread != nullptr) {
    const UniqueHandle thread(theWorker->thread);
    PostThreadMessageW(theWorker->threadId, stopMessage, 0, 0);
    const DWORD ended = WaitForSingleObject(thread.get(), INFINITE);
    theWorker->thread = nullptr;
    theWorker->threadId = 0;
    if (ended != WAIT_OBJECT_0) return false;
  }
  delete theWorker;
  theWorker = nullptr;
  return true;
}
