// The worker's asynchronous channel to the tool-gate device: one request in flight with overlapped I/O, and
// synchronous requests beside it on a second handle. One thread uses a device object and its contexts.
// A request that the system aborts or wants retried becomes a status in the request; every other failure of
// the system is a TgException.
#pragma once

#include <memory>

#include "channel/tool_gate.h"

// Carries a system error code. Thrown by value, and not derived from std::exception: it passes through the
// handlers of the commands and ends the event loop.
struct TgException {
  DWORD error;
};

class TgObject {
 public:
  TgObject() = default;
  TgObject(const TgObject&) = delete;
  TgObject& operator=(const TgObject&) = delete;
  virtual ~TgObject() = default;
};

// One request in flight. It is not cancelled by its destructor: the owner cancels and waits first.
class TgContext : public TgObject {
 public:
  // Blocks until the context's event is signalled; raises TgException when the wait fails.
  virtual void Wait() = 0;
  // The event that completion signals, for waiting together with other objects; it stays the context's.
  virtual HANDLE Event() = 0;
};

class Tg : public TgObject {
 public:
  // Sends `request` and its buffers and waits for the outcome, which is in the request. Opens the second
  // handle the first time.
  virtual void Call(TgRequest& request) = 0;
  // Starts the context's request; raises TgException with 87 while it is in flight already.
  virtual void Submit(TgContext& context) = 0;
  // True when the request has finished or was never outstanding, false while it runs. Never blocks.
  virtual bool Poll(TgContext& context) = 0;
  // Cancels what the calling thread has outstanding on the overlapped handle; completion follows.
  virtual void Cancel() = 0;
};

// Opens the device for overlapped I/O. Null when that fails; raises nothing.
std::unique_ptr<Tg> OpenTg() noexcept;

// A context for `request`, which must outlive everything outstanding and whose counts are read now. Raises
// TgException when the event cannot be created.
std::unique_ptr<TgContext> CreateTgContext(TgRequest& request);
