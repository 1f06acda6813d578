// Which Windows this is. Two questions to the platform, which may answer differently: VerifyVersionInfoW is
// asked each time, and decides what is claimed and drawn; the packed number of GetVersion is taken once, and
// decides on OpenWithProgids alone. Both answer within what the program's manifest names: without one that
// names newer versions, 6.2 is the newest version that a program meets.
#pragma once

#include <windows.h>

// True on version `major`.`minor` and on every later one.
bool IsWindowsVersionOrLater(DWORD major, DWORD minor);

// True on 6.1 and later, by the packed version number; found once, while the module is loaded.
bool IsWindows7OrLater();

// True on version 5.0 and earlier.
bool IsWindows2000OrEarlier();
