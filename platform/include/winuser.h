// Thread message queues, and the one text call of this family. There are no windows here: every message is a
// thread message, and window parameters must be null.
#pragma once

#include <windef.h>

#define WM_QUIT 0x0012u
#define WM_USER 0x0400u

#define PM_NOREMOVE 0x0000u
#define PM_REMOVE 0x0001u

#define QS_POSTMESSAGE 0x0008u
#define QS_ALLINPUT 0x04FFu

#define MWMO_INPUTAVAILABLE 0x0004u

struct MSG {
  HWND hwnd;
  UINT message;
  WPARAM wParam;
  LPARAM lParam;
};

BOOL WINAPI PeekMessageW(MSG* message, HWND window, UINT first, UINT last, UINT remove);
LONG_PTR WINAPI DispatchMessageW(const MSG* message);
BOOL WINAPI PostThreadMessageW(DWORD thread, UINT message, WPARAM wParam, LPARAM lParam);
void WINAPI PostQuitMessage(int exitCode);
// Waits for any of the objects. With MWMO_INPUTAVAILABLE what a look has left in the queue ends the wait too.
DWORD WINAPI MsgWaitForMultipleObjectsEx(DWORD count, const HANDLE* handles, DWORD milliseconds,
                                         DWORD wakeMask, DWORD flags);

// Lower-cases NUL-terminated text in place. A single character in place of the pointer is not supported.
LPWSTR WINAPI CharLowerW(LPWSTR text);
