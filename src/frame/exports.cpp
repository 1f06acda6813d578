// The three entry points of the module. They are exported by plain name (velomira.def, exports.map) and may
// be called from any thread of the loading program, one at a time.
#include "frame/velomira.h"

#include <windows.h>

#include "frame/worker.h"

namespace {
constexpr std::uint32_t notifyStart = 5;
constexpr std::uint32_t notifyStop = 6;
}  // namespace

std::int32_t StartTool() {
  return StartWorker() ? 0 : 1;
}

std::int32_t StopTool() {
  StopWorker();
  return 0;
}

std::int32_t NotifyTool(std::uint32_t code) {
  if (code == notifyStart) StartWorker();
  if (code == notifyStop) StopWorker();
  return 0;
}

extern "C" BOOL WINAPI DllMain(HINSTANCE /*module*/, DWORD /*reason*/, LPVOID /*reserved*/) {
  return TRUE;
}
