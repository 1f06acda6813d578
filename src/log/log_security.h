// The access of interactive users to a new log file, so that every user's processes can share it.
#pragma once

#include <windows.h>

// Adds generic read and write for the interactive users to the DACL of `file`, which was opened with
// READ_CONTROL and WRITE_DAC. A failure is ignored.
void GrantInteractiveUsers(HANDLE file) noexcept;
