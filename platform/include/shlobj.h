// Special folders, folder creation and change notifications; brings the shell link along.
#pragma once

#include <shellapi.h>
#include <shobjidl.h>
#include <windef.h>

#define CSIDL_PROGRAMS 0x0002
#define CSIDL_APPDATA 0x001A
#define CSIDL_LOCAL_APPDATA 0x001C

#define SHCNE_ASSOCCHANGED 0x08000000
#define SHCNF_IDLIST 0x0000u

enum SHGFP_TYPE { SHGFP_TYPE_CURRENT };

// The path buffers hold MAX_PATH units. A folder that is not there fails the call, unless it is asked to
// create it.
BOOL WINAPI SHGetSpecialFolderPathW(HWND window, LPWSTR path, int folder, BOOL create);
HRESULT WINAPI SHGetFolderPathW(HWND window, int folder, HANDLE token, DWORD type, LPWSTR path);
// Creates missing parents too; answers an error code, ERROR_ALREADY_EXISTS when there was nothing to do.
int WINAPI SHCreateDirectoryExW(HWND window, LPCWSTR path, const SECURITY_ATTRIBUTES* security);
void WINAPI SHChangeNotify(LONG event, UINT flags, LPCVOID item1, LPCVOID item2);
