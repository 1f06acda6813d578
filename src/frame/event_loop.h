// The worker's loop: one receive outstanding at the device, one wait on it and on the thread's messages, one
// command at a time.
#pragma once

#include <cstddef>
#include <span>

#include "frame/worker.h"

inline constexpr std::size_t receiveBufferSize = 512;

// Runs until the stop message, a failed wait or an exception; nothing leaves it. Call on the worker's thread,
// whose queue exists, with `worker.gate` set.
void RunEventLoop(ToolWorker& worker) noexcept;

// Runs the command whose envelope the host wrote into `buffer`. Raises nothing derived from std::exception.
void DispatchCommand(ToolWorker& worker, std::span<const std::byte, receiveBufferSize> buffer);
