// Owners of platform handles, one type a family, each move-only and as large as the raw handle. They close
// what they hold when destroyed and report nothing.
#pragma once

#include <windows.h>

#include <utility>

// Traits: Handle, invalid() and close(Handle).
template <class Traits>
class Unique {
 public:
  using Handle = typename Traits::Handle;

  explicit Unique(Handle handle = Traits::invalid()) : handle_(handle) {}
  Unique(Unique&& other) noexcept : handle_(other.release()) {}
  Unique& operator=(Unique&& other) noexcept {
    if (this != &other) reset(other.release());
    return *this;
  }
  ~Unique() { reset(); }

  Handle get() const { return handle_; }
  explicit operator bool() const { return handle_ != Traits::invalid(); }
  Handle release() { return std::exchange(handle_, Traits::invalid()); }
  void reset(Handle handle = Traits::invalid()) {
    const Handle old = std::exchange(handle_, handle);
    if (old != Traits::invalid()) Traits::close(old);
  }

 private:
  Handle handle_;
};

// Events and threads: null is none.
struct KernelHandleTraits {
  using Handle = HANDLE;
  static Handle invalid() { return nullptr; }
  static void close(Handle handle) { CloseHandle(handle); }
};
using UniqueHandle = Unique<KernelHandleTraits>;

// Files and devices: INVALID_HANDLE_VALUE is none.
struct FileHandleTraits {
  using Handle = HANDLE;
  static Handle invalid() { return INVALID_HANDLE_VALUE; }
  static void close(Handle handle) { CloseHandle(handle); }
};
using UniqueFile = Unique<FileHandleTraits>;

struct FindHandleTraits {
  using Handle = HANDLE;
  static Handle invalid() { return INVALID_HANDLE_VALUE; }
  static void close(Handle handle) { FindClose(handle); }
};
using UniqueFind = Unique<FindHandleTraits>;

struct ModuleTraits {
  using Handle = HMODULE;
  static Handle invalid() { return nullptr; }
  static void close(Handle handle) { FreeLibrary(handle); }
};
using UniqueModule = Unique<ModuleTraits>;

struct KeyTraits {
  using Handle = HKEY;
  static Handle invalid() { return nullptr; }
  static void close(Handle key) { RegCloseKey(key); }
};
using Key = Unique<KeyTraits>;

// Interfaces: one reference, released at the end.
template <class Interface>
struct ComTraits {
  using Handle = Interface*;
  static Handle invalid() { return nullptr; }
  static void close(Handle interface_) { interface_->Release(); }
};
template <class Interface>
class ComPtr : public Unique<ComTraits<Interface>> {
 public:
  using Unique<ComTraits<Interface>>::Unique;
  Interface* operator->() const { return this->get(); }
};
