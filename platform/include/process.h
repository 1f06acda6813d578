// The C runtime's thread creation. The handle belongs to the caller and is signalled when the thread has
// ended.
#pragma once

#include <windef.h>

// Only default security, the default stack size and an immediate start. 0 with errno set when it fails.
std::uintptr_t _beginthreadex(void* security, unsigned stackSize, unsigned(__stdcall* start)(void*),
                              void* argument, unsigned flags, unsigned* threadId);
