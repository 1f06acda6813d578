// A thread of the platform's kind that runs a piece of a test.
#pragma once

#include <gtest/gtest.h>
#include <process.h>
#include <windows.h>

#include <functional>
#include <utility>

class Thread {
 public:
  explicit Thread(std::function<void()> body) : body_(std::move(body)) {
    handle_ = reinterpret_cast<HANDLE>(_beginthreadex(nullptr, 0, Run, &body_, 0, &id_));
  }
  // Waits for its end.
  ~Thread() {
    EXPECT_EQ(WaitForSingleObject(handle_, INFINITE), WAIT_OBJECT_0);
    EXPECT_TRUE(CloseHandle(handle_));
  }
  Thread(const Thread&) = delete;
  Thread& operator=(const Thread&) = delete;

  HANDLE handle() const { return handle_; }
  unsigned id() const { return id_; }

 private:
  static unsigned __stdcall Run(void* body) {
    (*static_cast<std::function<void()>*>(body))();
    return 0;
  }

  std::function<void()> body_;
  HANDLE handle_ = nullptr;
  unsigned id_ = 0;
};
