// DACL editing. Every block that the platform hands out here is local memory of the caller's.
#include "log/log_security.h"

#include <aclapi.h>
#include <sddl.h>

#include "common/handles.h"

namespace {

struct LocalTraits {
  using Handle = void*;
  static Handle invalid() { return nullptr; }
  static void close(Handle memory) { LocalFree(memory); }
};
using UniqueLocal = Unique<LocalTraits>;

}  // namespace

void GrantInteractiveUsers(HANDLE file) noexcept {
  PACL dacl = nullptr;
  PSECURITY_DESCRIPTOR descriptor = nullptr;
  if (GetSecurityInfo(file, SE_FILE_OBJECT, DACL_SECURITY_INFORMATION, nullptr, nullptr, &dacl, nullptr,
                      &descriptor) != ERROR_SUCCESS) {
    return;
  }
  const UniqueLocal descriptorMemory(descriptor);
  if (dacl == nullptr) return;
  PSID interactive = nullptr;
  if (!ConvertStringSidToSidW(TEXT("IU"), &interactive)) return;
  const UniqueLocal sidMemory(interactive);

  EXPLICIT_ACCESSW access{};
  access.grfAccessPermissions = GENERIC_READ | GENERIC_WRITE;
  access.grfAccessMode = SET_ACCESS;
  access.grfInheritance = NO_INHERITANCE;
  access.Trustee.TrusteeForm = TRUSTEE_IS_SID;
  access.Trustee.ptstrName = static_cast<LPWSTR>(interactive);
  PACL merged = nullptr;
  if (SetEntriesInAclW(1, &access, dacl, &merged) != ERROR_SUCCESS) return;
  const UniqueLocal aclMemory(merged);
  SetSecurityInfo(file, SE_FILE_OBJECT, DACL_SECURITY_INFORMATION, nullptr, nullptr, merged, nullptr);
}
