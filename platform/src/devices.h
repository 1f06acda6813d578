// Opening devices by name, for the family of calls that opens files, and the end of a thread's requests.
#pragma once

#include <windows.h>

#include <string_view>

namespace platform {

bool IsDeviceName(std::u16string_view path);  // begins with \\.\ .

// A handle of kind "device", or INVALID_HANDLE_VALUE with the last error set; FILE_FLAG_OVERLAPPED in `flags`
// makes it overlapped.
HANDLE OpenDevice(std::u16string_view name, DWORD access, DWORD share, DWORD flags);

// A thread that ends takes its outstanding requests with it.
void CancelRequestsOfThisThread();

}  // namespace platform
