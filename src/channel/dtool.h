// Synchronous access to the tool-gate device for the commands: each question opens the device for itself.
// The judgement of a failed request is left to the caller.
#pragma once

#include <cstdint>

#include "common/handles.h"

class ToolDevice {
 public:
  // Opens the device; raises "Can't open tool device driver". Closed when destroyed.
  ToolDevice();

  // Sends `buffer` (`size` bytes, an envelope at its start), over which the device writes the reply. Returns
  // the bytes that the system reports for the request, 0 when the control failed. `status`, if given,
  // receives the request's status, or the system's error when the control failed. Raises nothing.
  std::uint32_t Ioctl(std::uint32_t request, void* buffer, std::uint32_t size,
                      std::uint32_t* status = nullptr);

 private:
  UniqueFile device_;
};
