// Thread message queues, and the one text call of this family. There are no windows here: every message is a
// thread message, and window parameters must be null.
#pragma once

#include <windef.h>

#define WM_QUIT 0x0012u
#define WM_USER 0x0400u

#define PM_NOREMOVE 0x0000u
#define PM_REMOVE 0x0001u

#define QS_KEY 0x0001u
#define QS_MOUSEMOVE 0x0002u
#define QS_MOUSEBUTTON 0x0004u
#define QS_POSTMESSAGE 0x0008u
#define QS_TIMER 0x0010u
#define QS_PAINT 0x0020u
#define QS_SENDMESSAGE 0x0040u
#define QS_HOTKEY 0x0080u
#define QS_RAWINPUT 0x0400u
#define QS_MOUSE (QS_MOUSEMOVE | QS_MOUSEBUTTON)
#define QS_INPUT (QS_MOUSE | QS_KEY | QS_RAWINPUT)
#define QS_ALLEVENTS (QS_INPUT | QS_POSTMESSAGE | QS_TIMER | QS_PAINT | QS_HOTKEY)
#define QS_ALLINPUT (QS_ALLEVENTS | QS_SENDMESSAGE)

#define MWMO_INPUTAVAILABLE 0x0004u

struct POINT {
  LONG x;
  LONG y;
};

struct MSG {
  HWND hwnd;
  UINT message;
  WPARAM wParam;
  LPARAM lParam;
  DWORD time;  // milliseconds of the tick count when it was posted
  POINT pt;    // always the origin
};
using LPMSG = MSG*;

BOOL WINAPI PeekMessageW(LPMSG message, HWND window, UINT first, UINT last, UINT remove);
LRESULT WINAPI DispatchMessageW(const MSG* message);
BOOL WINAPI PostThreadMessageW(DWORD thread, UINT message, WPARAM wParam, LPARAM lParam);
void WINAPI PostQuitMessage(int exitCode);
DWORD WINAPI MsgWaitForMultipleObjects(DWORD count, const HANDLE* handles, BOOL waitAll, DWORD milliseconds,
                                       DWORD wakeMask);
// Waits for any of the objects. With MWMO_INPUTAVAILABLE what a look has left in the queue ends the wait too.
DWORD WINAPI MsgWaitForMultipleObjectsEx(DWORD count, const HANDLE* handles, DWORD milliseconds,
                                         DWORD wakeMask, DWORD flags);

// Lower-cases NUL-terminated text in place. A single character in place of the pointer is not supported.
LPWSTR WINAPI CharLowerW(LPWSTR text);
