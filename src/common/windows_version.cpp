// The version tests, over one question to the platform; major and minor are compared together, as one number.
#include "common/windows_version.h"

namespace {

bool VersionIs(BYTE condition, DWORD major, DWORD minor) {
  OSVERSIONINFOEXW version{};
  version.dwOSVersionInfoSize = sizeof version;
  version.dwMajorVersion = major;
  version.dwMinorVersion = minor;
  static_assert(sizeof version == 284);
  DWORDLONG conditions = VerSetConditionMask(0, VER_MAJORVERSION, condition);
  conditions = VerSetConditionMask(conditions, VER_MINORVERSION, condition);
  return VerifyVersionInfoW(&version, VER_MAJORVERSION | VER_MINORVERSION, conditions) != FALSE;
}

bool PackedVersionIsWindows7OrLater() {
  const DWORD version = GetVersion();
  return (version & 0xFF) * 256 + ((version >> 8) & 0xFF) >= 0x0601;
}

const bool windows7OrLater = PackedVersionIsWindows7OrLater();

}  // namespace

bool IsWindowsVersionOrLater(DWORD major, DWORD minor) {
  return VersionIs(VER_GREATER_EQUAL, major, minor);
}

bool IsWindows7OrLater() {
  return windows7OrLater;
}

bool IsWindows2000OrEarlier() {
  return VersionIs(VER_LESS_EQUAL, 5, 0);
}
