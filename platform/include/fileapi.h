// Files, folders and enumeration of the guest's drive C. Sharing modes hold between the handles of one
// process only, and a folder without the host's owner write bit is a denied one: nothing is made or deleted
// in it.
#pragma once

#include <winbase.h>
#include <windef.h>
#include <winnt.h>

#define INVALID_HANDLE_VALUE (reinterpret_cast<HANDLE>(static_cast<LONG_PTR>(-1)))
#define INVALID_FILE_ATTRIBUTES 0xFFFFFFFFu

#define FILE_READ_DATA 0x0001u
#define FILE_WRITE_DATA 0x0002u
#define FILE_APPEND_DATA 0x0004u
#define FILE_READ_ATTRIBUTES 0x0080u
#define FILE_GENERIC_READ 0x00120089u
#define FILE_GENERIC_WRITE 0x00120116u
#define FILE_ALL_ACCESS 0x001F01FFu

#define FILE_SHARE_READ 0x1u
#define FILE_SHARE_WRITE 0x2u
#define FILE_SHARE_DELETE 0x4u

#define CREATE_NEW 1u
#define CREATE_ALWAYS 2u
#define OPEN_EXISTING 3u
#define OPEN_ALWAYS 4u

#define FILE_ATTRIBUTE_READONLY 0x01u
#define FILE_ATTRIBUTE_DIRECTORY 0x10u
#define FILE_ATTRIBUTE_ARCHIVE 0x20u
#define FILE_ATTRIBUTE_NORMAL 0x80u
#define FILE_FLAG_BACKUP_SEMANTICS 0x02000000u
#define FILE_FLAG_OVERLAPPED 0x40000000u

// Of these records only the fields that are read.
struct BY_HANDLE_FILE_INFORMATION {
  DWORD dwVolumeSerialNumber;
  DWORD nFileIndexHigh;
  DWORD nFileIndexLow;
};
struct WIN32_FIND_DATAW {
  DWORD dwFileAttributes;
  WCHAR cFileName[MAX_PATH];
};

// Files and, by their names, devices. Narrow names are UTF-8.
HANDLE WINAPI CreateFileW(LPCWSTR name, DWORD access, DWORD share, LPSECURITY_ATTRIBUTES security,
                          DWORD disposition, DWORD flags, HANDLE templateFile);
HANDLE WINAPI CreateFileA(LPCSTR name, DWORD access, DWORD share, LPSECURITY_ATTRIBUTES security,
                          DWORD disposition, DWORD flags, HANDLE templateFile);
BOOL WINAPI ReadFile(HANDLE file, LPVOID buffer, DWORD size, LPDWORD read, LPOVERLAPPED overlapped);
// With both offsets of `overlapped` 0xFFFFFFFF the bytes go to the end of the file in one indivisible step.
BOOL WINAPI WriteFile(HANDLE file, LPCVOID buffer, DWORD size, LPDWORD written, LPOVERLAPPED overlapped);
BOOL WINAPI GetFileInformationByHandle(HANDLE file, BY_HANDLE_FILE_INFORMATION* information);

BOOL WINAPI DeleteFileW(LPCWSTR name);
BOOL WINAPI CopyFileW(LPCWSTR from, LPCWSTR to, BOOL failIfExists);
DWORD WINAPI GetFileAttributesW(LPCWSTR name);
BOOL WINAPI CreateDirectoryW(LPCWSTR name, LPSECURITY_ATTRIBUTES security);

// The pattern is "*" or "*" and an ending. Entries come in the order of their names without regard to case,
// "." and ".." first.
HANDLE WINAPI FindFirstFileW(LPCWSTR pattern, WIN32_FIND_DATAW* data);
BOOL WINAPI FindNextFileW(HANDLE find, WIN32_FIND_DATAW* data);
BOOL WINAPI FindClose(HANDLE find);

// The length without NUL, or the size that is needed when `size` does not suffice.
UINT WINAPI GetWindowsDirectoryW(LPWSTR buffer, UINT size);
