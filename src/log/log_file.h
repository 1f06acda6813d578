// The file behind the log: where it lies, and one append per line.
#pragma once

#include <string_view>

// Appends `line` with one write at the end of the file. Opens the file on first use, and anew when it was
// deleted or replaced, which is looked at once a second; falls back to the user's local folder when the
// primary one cannot be written. Raises nothing; a line that cannot be written is lost. Changes the thread's
// last error.
void AppendToLog(std::string_view line) noexcept;
