// A device of the native layer that keeps its requests until a test or a cancellation ends them.
#pragma once

#include <platform/control.h>

#include <cstring>
#include <mutex>
#include <thread>

class KeepingDevice : public platform::Device {
 public:
  using Request = std::shared_ptr<platform::IoRequest>;

  DWORD Open(DWORD, DWORD, bool) override { return 0; }
  void Close() override {}
  // What the module sends succeeds at once.
  void Control(Request request) override {
    std::uint32_t code;
    std::memcpy(&code, request->buffer(), sizeof code);
    if (code == 0x8301) return request->Complete(0, request->size());
    std::lock_guard lock(mutex_);
    kept_.push_back(std::move(request));
  }
  void Cancel(const Request& request) override {
    ++cancelled;
    if (!slow) request->Complete(ERROR_OPERATION_ABORTED, 0);
  }
  // Request number `n`, counted from 0; waits for it.
  Request Kept(std::size_t n) {
    for (;; std::this_thread::yield()) {
      std::lock_guard lock(mutex_);
      if (n < kept_.size()) return kept_[n];
    }
  }
  // A request keeps its device.
  void Forget() { kept_.clear(); }

  int cancelled = 0;
  bool slow = false;  // a cancellation ends nothing

 private:
  std::mutex mutex_;
  std::vector<Request> kept_;
};
