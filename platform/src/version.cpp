// The Windows version that the layer reports. It is fixed while the layer is loaded, before any library that
// links to it is initialised, because such a library may keep an answer for good.
#include <platform/control.h>

#include <cstdio>
#include <cstdlib>
#include <utility>

#include "layer.h"

namespace platform {
namespace {

constexpr unsigned conditionBits = 3;  // per field, the minor version's first

WindowsVersion ReadVersion() {
  const char* text = std::getenv("PLATFORM_WINDOWS_VERSION");
  if (text == nullptr) return {10, 0};
  WindowsVersion version{};
  char rest = 0;
  if (std::sscanf(text, "%u.%u%c", &version.major, &version.minor, &rest) != 2) {
    Unsupported("PLATFORM_WINDOWS_VERSION", text);
  }
  return version;
}

const WindowsVersion reported = ReadVersion();

}  // namespace

WindowsVersion ReportedVersion() {
  return reported;
}

}  // namespace platform

using namespace platform;

DWORD WINAPI GetVersion() {
  CallPasses("GetVersion");
  return reported.major | reported.minor << 8;
}

ULONGLONG WINAPI VerSetConditionMask(ULONGLONG mask, DWORD type, BYTE condition) {
  CallPasses("VerSetConditionMask");
  if (condition != VER_GREATER_EQUAL && condition != VER_LESS_EQUAL) {
    Unsupported("VerSetConditionMask", "condition");
  }
  switch (type) {
    case VER_MINORVERSION:
      return mask | condition;
    case VER_MAJORVERSION:
      return mask | static_cast<ULONGLONG>(condition) << conditionBits;
    default:
      Unsupported("VerSetConditionMask", "type");
  }
}

// The minor version decides only where the major versions are equal.
BOOL WINAPI VerifyVersionInfoW(OSVERSIONINFOEXW* wanted, DWORD types, DWORDLONG conditions) {
  if (CallFails("VerifyVersionInfoW", ERROR_OLD_WIN_VERSION)) return FALSE;
  if (wanted->dwOSVersionInfoSize != sizeof *wanted) Unsupported("VerifyVersionInfoW", "size");
  if (types != (VER_MAJORVERSION | VER_MINORVERSION)) Unsupported("VerifyVersionInfoW", "types");
  const std::pair have{reported.major, reported.minor};
  const std::pair asked{wanted->dwMajorVersion, wanted->dwMinorVersion};
  bool holds = false;
  switch (conditions) {
    case VER_GREATER_EQUAL << conditionBits | VER_GREATER_EQUAL:
      holds = have >= asked;
      break;
    case VER_LESS_EQUAL << conditionBits | VER_LESS_EQUAL:
      holds = have <= asked;
      break;
    default:
      Unsupported("VerifyVersionInfoW", "conditions");
  }
  if (!holds) SetLastError(ERROR_OLD_WIN_VERSION);
  return holds;
}
