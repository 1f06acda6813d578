// Conversion between UTF-8 and UTF-16. Sizes count units of the target; a target size of 0 asks for the size.
#pragma once

#include <windef.h>

#define CP_UTF8 65001u
#define MB_ERR_INVALID_CHARS 0x00000008u
#define WC_ERR_INVALID_CHARS 0x00000080u

int WINAPI MultiByteToWideChar(UINT codePage, DWORD flags, LPCCH text, int length, LPWSTR wide, int wideSize);
int WINAPI WideCharToMultiByte(UINT codePage, DWORD flags, LPCWCH wide, int wideLength, LPSTR text, int size,
                               LPCCH defaultChar, LPBOOL usedDefaultChar);
