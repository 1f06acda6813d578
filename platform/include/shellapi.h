// File operations of the shell: deletion of a name with everything below them.
#pragma once

#include <windef.h>

#define FO_DELETE 3u

#define FOF_SILENT 0x0004
#define FOF_NOCONFIRMATION 0x0010
#define FOF_NOERRORUI 0x0400

struct SHFILEOPSTRUCTW {
  HWND hwnd;
  UINT wFunc;
  LPCWSTR pFrom;  // one name, ended by two NULs
  LPCWSTR pTo;
  WORD fFlags;
  BOOL fAnyOperationsAborted;
};

int WINAPI SHFileOperationW(SHFILEOPSTRUCTW* operation);  // 0, or an error code
