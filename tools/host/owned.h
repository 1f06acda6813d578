// Closes what it holds; for the handles and interfaces of the host tool.
#pragma once

#include <objbase.h>

namespace host {

template <class Handle, auto close>
class Owned {
 public:
  explicit Owned(Handle handle = Handle()) : handle_(handle) {}
  ~Owned() {
    if (handle_ != Handle()) close(handle_);
  }
  Owned(const Owned&) = delete;
  Owned& operator=(const Owned&) = delete;
  Handle get() const { return handle_; }
  Handle operator->() const { return handle_; }
  Handle* out() { return &handle_; }
  explicit operator bool() const { return handle_ != Handle(); }

 private:
  Handle handle_;
};

}  // namespace host
