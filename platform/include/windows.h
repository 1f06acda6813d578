// The platform's main header, natively: the families of calls that Windows' own header brings along.
#pragma once

#include <fileapi.h>
#include <libloaderapi.h>
#include <winbase.h>
#include <windef.h>
#include <winerror.h>
#include <winnls.h>
#include <winnt.h>
#include <winreg.h>
#include <winuser.h>
