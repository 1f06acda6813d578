// The table of file uses. A use without reading, writing or deleting rights (attributes only) stands against
// nobody, but it is listed all the same.
#include "file_use.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <map>
#include <mutex>

#include "files.h"

namespace platform {
namespace {

struct Uses {
  std::mutex mutex;
  std::multimap<FileIdentity, const FileUse*> open;
};

// Never destroyed: handles may outlive the end of main.
Uses& TheUses() {
  static auto* uses = new Uses;
  return *uses;
}

// The sharing that others must grant for this access.
DWORD NeededShare(DWORD access) {
  DWORD share = 0;
  if (access & FILE_READ_DATA) share |= FILE_SHARE_READ;
  if (access & (FILE_WRITE_DATA | FILE_APPEND_DATA)) share |= FILE_SHARE_WRITE;
  if (access & DELETE) share |= FILE_SHARE_DELETE;
  return share;
}

}  // namespace

FileUse::FileUse(int descriptor, FileIdentity identity, DWORD access, DWORD share)
    : descriptor_(descriptor), identity_(std::move(identity)), access_(access), share_(share) {}

FileUse::~FileUse() {
  {
    std::lock_guard lock(TheUses().mutex);
    auto [first, last] = TheUses().open.equal_range(identity_);
    while (first != last && first->second != this) ++first;
    if (first != last) TheUses().open.erase(first);
  }
  close(descriptor_);
}

bool FileUse::agreesWith(const FileUse& other) const {
  const DWORD mine = NeededShare(access_), theirs = NeededShare(other.access_);
  return mine == 0 || theirs == 0 || ((mine & ~other.share_) == 0 && (theirs & ~share_) == 0);
}

DWORD MapGenericRights(DWORD access) {
  if (access & GENERIC_READ) access |= FILE_GENERIC_READ;
  if (access & GENERIC_WRITE) access |= FILE_GENERIC_WRITE;
  access &= ~(GENERIC_READ | GENERIC_WRITE);
  if ((access & ~FILE_ALL_ACCESS) != 0) Unsupported("files", "access rights");
  return access;
}

std::shared_ptr<FileUse> UseDescriptor(int descriptor, DWORD access, DWORD share, DWORD* error) {
  struct stat status;
  if (fstat(descriptor, &status) != 0) {
    *error = HostError();
    close(descriptor);
    return nullptr;
  }
  const FileIdentity identity{status.st_dev, status.st_ino};
  auto use = std::make_shared<FileUse>(descriptor, identity, MapGenericRights(access), share);
  std::lock_guard lock(TheUses().mutex);
  const auto [first, last] = TheUses().open.equal_range(identity);
  for (auto other = first; other != last; ++other) {
    if (!use->agreesWith(*other->second)) {
      *error = ERROR_SHARING_VIOLATION;
      return nullptr;
    }
  }
  TheUses().open.emplace(identity, use.get());
  return use;
}

std::shared_ptr<void> UseFile(const std::filesystem::path& hostPath, DWORD access, DWORD share,
                              DWORD* error) {
  const int descriptor = open(hostPath.c_str(), O_PATH | O_CLOEXEC);
  if (descriptor < 0) {
    *error = HostError();
    return nullptr;
  }
  return UseDescriptor(descriptor, access, share, error);
}

}  // namespace platform
