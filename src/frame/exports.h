// The module's interface to the program that loads it. C linkage, the platform's default calling convention.
#pragma once

#include <windows.h>

#include <cstdint>

extern "C" {

// Starts the worker. 0 when it runs afterwards (also when it ran before), 1 when the start failed; the
// tool-gate device must be there. Returns once the worker has opened it.
std::int32_t StartTool();

// Ends the worker after the command under way, and waits for it without a limit. Always 0.
std::int32_t StopTool();

// `code` 5 starts as StartTool does, 6 stops as StopTool does, every other code does nothing. Always 0.
std::int32_t NotifyTool(std::uint32_t code);
}
