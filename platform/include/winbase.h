// Kernel objects, waits, overlapped device I/O, error state, time and version queries.
// An OVERLAPPED record is written by whichever thread completes the request: look at its `Internal` only
// through HasOverlappedIoCompleted or GetOverlappedResult until one of them has said that it is over.
#pragma once

#include <windef.h>
#include <winerror.h>
#include <winnt.h>

// ---- Error state ----

#define SEM_FAILCRITICALERRORS 0x0001u

DWORD WINAPI GetLastError();
void WINAPI SetLastError(DWORD error);
UINT WINAPI GetErrorMode();
UINT WINAPI SetErrorMode(UINT mode);

// ---- Handles, events and waits ----

#define WAIT_OBJECT_0 STATUS_WAIT_0
#define WAIT_TIMEOUT 258u
#define WAIT_FAILED 0xFFFFFFFFu
#define MAXIMUM_WAIT_OBJECTS 64u

BOOL WINAPI CloseHandle(HANDLE handle);
HANDLE WINAPI CreateEventW(LPSECURITY_ATTRIBUTES security, BOOL manualReset, BOOL initialState, LPCWSTR name);
BOOL WINAPI SetEvent(HANDLE event);
DWORD WINAPI WaitForSingleObject(HANDLE handle, DWORD milliseconds);
DWORD WINAPI WaitForMultipleObjects(DWORD count, const HANDLE* handles, BOOL waitAll, DWORD milliseconds);

// ---- Threads and the process ----

DWORD WINAPI GetCurrentThreadId();
DWORD WINAPI GetCurrentProcessId();
void WINAPI Sleep(DWORD milliseconds);

// ---- Device I/O ----

struct OVERLAPPED {
  ULONG_PTR Internal;      // the request's status
  ULONG_PTR InternalHigh;  // the bytes transferred
  DWORD Offset;
  DWORD OffsetHigh;
  HANDLE hEvent;
};
using LPOVERLAPPED = OVERLAPPED*;

inline bool HasOverlappedIoCompleted(const OVERLAPPED* overlapped) {
  return __atomic_load_n(&overlapped->Internal, __ATOMIC_ACQUIRE) != STATUS_PENDING;
}

BOOL WINAPI DeviceIoControl(HANDLE device, DWORD code, LPVOID in, DWORD inSize, LPVOID out, DWORD outSize,
                            LPDWORD returned, LPOVERLAPPED overlapped);
BOOL WINAPI GetOverlappedResult(HANDLE file, LPOVERLAPPED overlapped, LPDWORD transferred, BOOL wait);
BOOL WINAPI CancelIo(HANDLE file);

// ---- Time ----

struct SYSTEMTIME {
  WORD wYear;
  WORD wMonth;
  WORD wDayOfWeek;
  WORD wDay;
  WORD wHour;
  WORD wMinute;
  WORD wSecond;
  WORD wMilliseconds;
};

void WINAPI GetLocalTime(SYSTEMTIME* time);

// ---- Version ----

#define VER_MINORVERSION 0x0000001u
#define VER_MAJORVERSION 0x0000002u
#define VER_GREATER_EQUAL 3
#define VER_LESS_EQUAL 5

struct OSVERSIONINFOEXW {
  DWORD dwOSVersionInfoSize;
  DWORD dwMajorVersion;
  DWORD dwMinorVersion;
  DWORD dwBuildNumber;
  DWORD dwPlatformId;
  WCHAR szCSDVersion[128];
  WORD wServicePackMajor;
  WORD wServicePackMinor;
  WORD wSuiteMask;
  BYTE wProductType;
  BYTE wReserved;
};
static_assert(sizeof(OSVERSIONINFOEXW) == 284);

DWORD WINAPI GetVersion();
ULONGLONG WINAPI VerSetConditionMask(ULONGLONG mask, DWORD type, BYTE condition);
BOOL WINAPI VerifyVersionInfoW(OSVERSIONINFOEXW* wanted, DWORD types, DWORDLONG conditions);
