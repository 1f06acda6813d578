// Access lists of files. What GetSecurityInfo and the other calls hand out is local memory: one LocalFree
// each (the list inside a descriptor goes with the descriptor).
#pragma once

#include <winbase.h>
#include <windef.h>

using PSID = void*;
using PSECURITY_DESCRIPTOR = void*;

#define DACL_SECURITY_INFORMATION 0x4u
#define NO_INHERITANCE 0u

struct ACL {
  BYTE AclRevision;
  BYTE Sbz1;
  WORD AclSize;
  WORD AceCount;
  WORD Sbz2;
};
using PACL = ACL*;

enum SE_OBJECT_TYPE { SE_UNKNOWN_OBJECT_TYPE, SE_FILE_OBJECT };
enum ACCESS_MODE { NOT_USED_ACCESS, GRANT_ACCESS, SET_ACCESS };
enum TRUSTEE_FORM { TRUSTEE_IS_SID };

struct TRUSTEE_W {
  TRUSTEE_FORM TrusteeForm;
  LPWSTR ptstrName;  // a PSID, whatever the type says
};

struct EXPLICIT_ACCESS_W {
  DWORD grfAccessPermissions;
  ACCESS_MODE grfAccessMode;
  DWORD grfInheritance;
  TRUSTEE_W Trustee;
};
using EXPLICIT_ACCESSW = EXPLICIT_ACCESS_W;
using PEXPLICIT_ACCESSW = EXPLICIT_ACCESS_W*;

// These answer an error code.
DWORD WINAPI GetSecurityInfo(HANDLE handle, SE_OBJECT_TYPE type, DWORD information, PSID* owner, PSID* group,
                             PACL* dacl, PACL* sacl, PSECURITY_DESCRIPTOR* descriptor);
DWORD WINAPI SetSecurityInfo(HANDLE handle, SE_OBJECT_TYPE type, DWORD information, PSID owner, PSID group,
                             PACL dacl, PACL sacl);
DWORD WINAPI SetEntriesInAclW(ULONG count, PEXPLICIT_ACCESSW entries, PACL oldAcl, PACL* newAcl);
DWORD WINAPI GetExplicitEntriesFromAclW(PACL acl, ULONG* count, PEXPLICIT_ACCESSW* entries);

BOOL WINAPI EqualSid(PSID a, PSID b);
HANDLE WINAPI LocalFree(HANDLE memory);
