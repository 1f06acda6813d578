// The one worker: its control block, and the start and stop that the exports offer. The callers issue start
// and stop one at a time; the block has no lock.
#pragma once

#include <memory>

#include "channel/tg.h"

struct ToolWorker {
  HANDLE thread = nullptr;      // owned from publication until the stop closes it
  DWORD threadId = 0;           // where the stop message goes
  std::unique_ptr<Tg> gate;     // stored by the worker, destroyed with the block
  bool announcePending = true;  // the guest is to be announced to the host at the next opportunity
};

// The message that asks the worker's thread to end; both parameters are 0.
inline constexpr UINT stopMessage = WM_USER;

// True when a worker runs afterwards, started now or before; false when the start failed, and nothing of it
// is left. Waits until the worker has opened its device. Raises nothing.
bool StartWorker() noexcept;

// True when no worker is left; waits for the command that is under way. False when that wait failed: the
// block then stays until the next stop. Raises nothing.
bool StopWorker() noexcept;
