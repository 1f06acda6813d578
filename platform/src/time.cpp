// Time and the process: the local clock, sleeping, the process identifier and its error mode.
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <ctime>
#include <thread>

#include "kernel.h"

using namespace platform;

namespace {
std::atomic<UINT> errorMode{0};
}  // namespace

void WINAPI GetLocalTime(SYSTEMTIME* time) {
  CallPasses("GetLocalTime");
  timespec now{};
  clock_gettime(CLOCK_REALTIME, &now);
  tm parts{};
  localtime_r(&now.tv_sec, &parts);
  const auto word = [](long value) { return static_cast<WORD>(value); };
  *time = {word(parts.tm_year + 1900), word(parts.tm_mon + 1),     word(parts.tm_wday),
           word(parts.tm_mday),        word(parts.tm_hour),        word(parts.tm_min),
           word(parts.tm_sec),         word(now.tv_nsec / 1000000)};
}

void WINAPI Sleep(DWORD milliseconds) {
  CallPasses("Sleep");
  if (milliseconds == INFINITE) Unsupported("Sleep", "for ever");
  std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
}

DWORD WINAPI GetCurrentProcessId() {
  CallPasses("GetCurrentProcessId");
  return static_cast<DWORD>(getpid());
}

UINT WINAPI GetErrorMode() {
  CallPasses("GetErrorMode");
  return errorMode;
}

UINT WINAPI SetErrorMode(UINT mode) {
  CallPasses("SetErrorMode");
  if ((mode & ~SEM_FAILCRITICALERRORS) != 0) Unsupported("SetErrorMode", "mode");
  return errorMode.exchange(mode);
}
