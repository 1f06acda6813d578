// Access lists of files, and local memory. A list has the layout that Windows gives it (a header, then
// allowing entries that each end in a SID); a descriptor is nothing but the list. Lists are kept for the
// process' lifetime beside the files, by host identity, and change no access check.
#include <aclapi.h>
#include <sddl.h>

#include <cstdlib>
#include <cstring>
#include <map>
#include <mutex>
#include <new>
#include <optional>
#include <vector>

#include "files.h"

namespace platform {
namespace {

constexpr std::size_t entryHeaderSize = 8;  // type, flags, size, mask

struct Entry {
  DWORD mask;
  std::string sid;
};
using AccessList = std::vector<Entry>;

void Append(std::string& bytes, std::uint32_t value, std::size_t size) {
  for (std::size_t i = 0; i < size; ++i) bytes += static_cast<char>(value >> (8 * i));
}

// Below the authority of the system's own security.
std::string MakeSid(std::initializer_list<std::uint32_t> parts) {
  std::string sid{1, static_cast<char>(parts.size()), 0, 0, 0, 0, 0, 5};
  for (const std::uint32_t part : parts) Append(sid, part, 4);
  return sid;
}

const std::string interactive = MakeSid({4}), localSystem = MakeSid({18}),
                  administrators = MakeSid({32, 544}), guestUser = MakeSid({21, 1, 2, 3, 1001});

std::string SidAt(const void* sid) {
  const auto* bytes = static_cast<const char*>(sid);
  return {bytes, bytes + 8 + 4 * static_cast<unsigned char>(bytes[1])};
}

PACL Pack(const AccessList& list) {
  std::string bytes;
  for (const Entry& entry : list) {
    Append(bytes, 0, 2);  // allows, not inherited
    Append(bytes, static_cast<std::uint32_t>(entryHeaderSize + entry.sid.size()), 2);
    Append(bytes, entry.mask, 4);
    bytes += entry.sid;
  }
  const std::size_t size = sizeof(ACL) + bytes.size();
  if (size > 0xFFFF) Unsupported("access lists", "a list of this size");
  auto* acl = new (AllocateLocal(size)) ACL{2, 0, static_cast<WORD>(size), static_cast<WORD>(list.size()), 0};
  std::memcpy(acl + 1, bytes.data(), bytes.size());
  return acl;
}

AccessList Unpack(const ACL* acl) {
  AccessList list;
  const auto* at = reinterpret_cast<const char*>(acl + 1);
  for (WORD i = 0; i < acl->AceCount; ++i) {
    WORD size;
    Entry entry;
    std::memcpy(&size, at + 2, sizeof size);
    std::memcpy(&entry.mask, at + 4, sizeof entry.mask);
    entry.sid = SidAt(at + entryHeaderSize);
    list.push_back(std::move(entry));
    at += size;
  }
  return list;
}

struct Lists {
  std::mutex mutex;
  // Files that are not listed have the default list.
  std::map<FileIdentity, std::optional<AccessList>> changed;
};
Lists& TheLists() {
  static auto* lists = new Lists;
  return *lists;
}

// None: everybody has every access.
std::optional<AccessList> ListOf(FileIdentity identity) {
  std::lock_guard lock(TheLists().mutex);
  const auto entry = TheLists().changed.find(identity);
  if (entry != TheLists().changed.end()) return entry->second;
  return AccessList{
      {FILE_ALL_ACCESS, localSystem}, {FILE_ALL_ACCESS, administrators}, {FILE_ALL_ACCESS, guestUser}};
}

void CheckRequest(const char* function, SE_OBJECT_TYPE type, DWORD information, bool others) {
  if (type != SE_FILE_OBJECT || information != DACL_SECURITY_INFORMATION || others) {
    Unsupported(function, "anything but the access list of a file");
  }
}

// In front of each piece of local memory; as large as its strictest alignment.
struct alignas(std::max_align_t) LocalHeader {
  Counted counted{"local"};
};

}  // namespace

void ForgetAccessList(FileIdentity identity) {
  std::lock_guard lock(TheLists().mutex);
  TheLists().changed.erase(identity);
}

void* AllocateLocal(std::size_t size) {
  void* memory = std::calloc(1, sizeof(LocalHeader) + size);
  if (!memory) throw std::bad_alloc();
  return new (memory) LocalHeader + 1;
}

}  // namespace platform

using namespace platform;

HANDLE WINAPI LocalFree(HANDLE memory) {
  CallPasses("LocalFree");
  if (!memory) return nullptr;
  auto* header = static_cast<LocalHeader*>(memory) - 1;
  header->~LocalHeader();
  std::free(header);
  return nullptr;
}

DWORD WINAPI GetSecurityInfo(HANDLE handle, SE_OBJECT_TYPE type, DWORD information, PSID* owner, PSID* group,
                             PACL* dacl, PACL* sacl, PSECURITY_DESCRIPTOR* descriptor) {
  if (CallFails("GetSecurityInfo", ERROR_ACCESS_DENIED)) return PlannedError();
  CheckRequest("GetSecurityInfo", type, information, owner || group || sacl || !dacl || !descriptor);
  const auto file = Find<FileObject>(handle);
  if (!file) return ERROR_INVALID_HANDLE;
  if (!(file->access & READ_CONTROL)) return ERROR_ACCESS_DENIED;
  const std::optional<AccessList> list = ListOf(file->use->identity());
  *dacl = list ? Pack(*list) : nullptr;
  *descriptor = list ? *dacl : AllocateLocal(1);
  return ERROR_SUCCESS;
}

DWORD WINAPI SetSecurityInfo(HANDLE handle, SE_OBJECT_TYPE type, DWORD information, PSID owner, PSID group,
                             PACL dacl, PACL sacl) {
  if (CallFails("SetSecurityInfo", ERROR_ACCESS_DENIED)) return PlannedError();
  CheckRequest("SetSecurityInfo", type, information, owner || group || sacl);
  const auto file = Find<FileObject>(handle);
  if (!file) return ERROR_INVALID_HANDLE;
  if (!(file->access & WRITE_DAC)) return ERROR_ACCESS_DENIED;
  std::optional<AccessList> list;
  if (dacl) {
    list = Unpack(dacl);
    for (Entry& entry : *list) entry.mask = MapGenericRights(entry.mask);
  }
  std::lock_guard lock(TheLists().mutex);
  TheLists().changed[file->use->identity()] = std::move(list);
  return ERROR_SUCCESS;
}

DWORD WINAPI SetEntriesInAclW(ULONG count, PEXPLICIT_ACCESSW entries, PACL oldAcl, PACL* newAcl) {
  if (CallFails("SetEntriesInAclW", ERROR_NOT_ENOUGH_MEMORY)) return PlannedError();
  AccessList list = oldAcl ? Unpack(oldAcl) : AccessList{};
  for (ULONG i = 0; i < count; ++i) {
    const EXPLICIT_ACCESS_W& added = entries[i];
    if (added.grfAccessMode != SET_ACCESS || added.grfInheritance != NO_INHERITANCE ||
        added.Trustee.TrusteeForm != TRUSTEE_IS_SID) {
      Unsupported("SetEntriesInAclW", "the kind of entry");
    }
    const std::string sid = SidAt(added.Trustee.ptstrName);
    std::erase_if(list, [&](const Entry& entry) { return entry.sid == sid; });
    list.insert(list.begin(), {added.grfAccessPermissions, sid});
  }
  *newAcl = Pack(list);
  return ERROR_SUCCESS;
}

DWORD WINAPI GetExplicitEntriesFromAclW(PACL acl, ULONG* count, PEXPLICIT_ACCESSW* entries) {
  if (CallFails("GetExplicitEntriesFromAclW", ERROR_NOT_ENOUGH_MEMORY)) return PlannedError();
  const AccessList list = Unpack(acl);
  std::size_t size = list.size() * sizeof(EXPLICIT_ACCESS_W);
  for (const Entry& entry : list) size += entry.sid.size();
  *count = static_cast<ULONG>(list.size());
  *entries = static_cast<PEXPLICIT_ACCESSW>(AllocateLocal(size));
  auto* sid = reinterpret_cast<char*>(*entries + list.size());
  for (std::size_t i = 0; i < list.size(); ++i) {
    std::memcpy(sid, list[i].sid.data(), list[i].sid.size());
    const TRUSTEE_W trustee{TRUSTEE_IS_SID, reinterpret_cast<LPWSTR>(sid)};
    new (*entries + i) EXPLICIT_ACCESS_W{list[i].mask, GRANT_ACCESS, NO_INHERITANCE, trustee};
    sid += list[i].sid.size();
  }
  return ERROR_SUCCESS;
}

BOOL WINAPI EqualSid(PSID a, PSID b) {
  CallPasses("EqualSid");
  return SidAt(a) == SidAt(b);
}

BOOL WINAPI ConvertStringSidToSidW(LPCWSTR text, PSID* sid) {
  if (CallFails("ConvertStringSidToSidW", ERROR_INVALID_PARAMETER)) return FALSE;
  if (std::u16string_view(text) != u"IU") Unsupported("ConvertStringSidToSidW", "the text");
  *sid = AllocateLocal(interactive.size());
  std::memcpy(*sid, interactive.data(), interactive.size());
  return TRUE;
}
