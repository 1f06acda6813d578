// File operations of the shell: deletion of names with everything below them.
#pragma once

#include <windef.h>

#define FO_DELETE 3u

#define FOF_SILENT 0x0004
#define FOF_NOCONFIRMATION 0x0010
#define FOF_NOERRORUI 0x0400

using FILEOP_FLAGS = WORD;

struct SHFILEOPSTRUCTW {
  HWND hwnd;
  UINT wFunc;
  LPCWSTR pFrom;  // a list of names, ended by an empty one
  LPCWSTR pTo;
  FILEOP_FLAGS fFlags;
  BOOL fAnyOperationsAborted;
  LPVOID hNameMappings;
  LPCWSTR lpszProgressTitle;
};
using LPSHFILEOPSTRUCTW = SHFILEOPSTRUCTW*;

int WINAPI SHFileOperationW(LPSHFILEOPSTRUCTW operation);  // 0, or an error code
