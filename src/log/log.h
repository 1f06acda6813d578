// The log: whole lines appended to one file that threads and processes share. Any thread may log. Nothing
// here raises or reports a failure, and the thread's last error is the same afterwards.
#pragma once

#include <cstdint>

// A message of level L is to be written only when this is at least L; the caller tests that.
inline constexpr std::int32_t LogThreshold = 1;

// Writes one line of at most 4,095 bytes: local time, level, component with process and thread, tag, and the
// printf-style message. `tag`, `component` and `format` are UTF-8 and only read. A line that cannot be
// written is lost.
[[gnu::format(printf, 4, 5)]] void WriteLog(const char* tag, const char* component, std::int32_t level,
                                            const char* format, ...) noexcept;
