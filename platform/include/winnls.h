// Conversion between UTF-8 and UTF-16. Sizes count units of the target; a target size of 0 asks for the size.
#pragma once

#include <windef.h>

#define CP_UTF8 65001u

int WINAPI MultiByteToWideChar(UINT codePage, DWORD flags, LPCSTR text, int length, LPWSTR wide,
                               int wideSize);
int WINAPI WideCharToMultiByte(UINT codePage, DWORD flags, LPCWSTR wide, int wideLength, LPSTR text, int size,
                               LPCSTR defaultChar, BOOL* usedDefaultChar);
