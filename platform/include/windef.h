// Base types of the Windows interfaces, natively. WCHAR is char16_t, so wide text is UTF-16 on every build
// and TEXT("...") is the one way to write it.
#pragma once

#include <cstddef>
#include <cstdint>

#define WINAPI
#define CALLBACK
#define __stdcall

using BYTE = unsigned char;
using WORD = std::uint16_t;
using DWORD = std::uint32_t;
using UINT = std::uint32_t;
using ULONG = std::uint32_t;
using LONG = std::int32_t;
using BOOL = int;
using WCHAR = char16_t;
using USHORT = std::uint16_t;
using SHORT = std::int16_t;
using ULONGLONG = std::uint64_t;
using DWORDLONG = std::uint64_t;
using LONG_PTR = std::intptr_t;
using ULONG_PTR = std::uintptr_t;
using WPARAM = ULONG_PTR;
using LPARAM = LONG_PTR;
using HRESULT = std::int32_t;

using LPVOID = void*;
using LPCVOID = const void*;
using LPBYTE = BYTE*;
using LPDWORD = DWORD*;
using LPSTR = char*;
using LPCSTR = const char*;
using LPWSTR = WCHAR*;
using LPCWSTR = const WCHAR*;

using HANDLE = void*;
using HGLOBAL = HANDLE;
#define DECLARE_HANDLE(name) \
  struct name##__;           \
  using name = name##__*
DECLARE_HANDLE(HINSTANCE);
DECLARE_HANDLE(HRSRC);
DECLARE_HANDLE(HWND);
DECLARE_HANDLE(HKEY);
using HMODULE = HINSTANCE;

#define FALSE 0
#define TRUE 1
#define MAX_PATH 260

#define TEXT(quote) u##quote

#define LOWORD(l) (static_cast<WORD>((l)&0xffff))
#define HIWORD(l) (static_cast<WORD>(((l) >> 16) & 0xffff))
#define LOBYTE(w) (static_cast<BYTE>((w)&0xff))
#define HIBYTE(w) (static_cast<BYTE>(((w) >> 8) & 0xff))

// Integer identifiers in place of names: resource types and names below 65536.
#define IS_INTRESOURCE(r) ((reinterpret_cast<ULONG_PTR>(r) >> 16) == 0)
#define MAKEINTRESOURCEW(i) (reinterpret_cast<LPWSTR>(static_cast<ULONG_PTR>(static_cast<WORD>(i))))
#define MAKEINTRESOURCE MAKEINTRESOURCEW

struct FILETIME {
  DWORD dwLowDateTime;
  DWORD dwHighDateTime;
};

struct SECURITY_ATTRIBUTES;  // only null ones are taken
using LPSECURITY_ATTRIBUTES = SECURITY_ATTRIBUTES*;

struct GUID {
  std::uint32_t Data1;
  std::uint16_t Data2;
  std::uint16_t Data3;
  std::uint8_t Data4[8];
};
using IID = GUID;
using CLSID = GUID;
using REFIID = const IID&;

inline bool operator==(const GUID& a, const GUID& b) {
  if (a.Data1 != b.Data1 || a.Data2 != b.Data2 || a.Data3 != b.Data3) return false;
  for (int i = 0; i < 8; ++i) {
    if (a.Data4[i] != b.Data4[i]) return false;
  }
  return true;
}
