// Uses of host files, for the sharing check: whoever opens, maps or deletes a file holds one meanwhile. A use
// pins the file on the host, so that its identity is not given to another file as long as the use lives.
#pragma once

#include <sys/types.h>
#include <windows.h>

#include <filesystem>
#include <memory>
#include <utility>

namespace platform {

using FileIdentity = std::pair<dev_t, ino_t>;

inline constexpr DWORD shareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;

// One use of a file; owns the descriptor.
class FileUse {
 public:
  FileUse(int descriptor, FileIdentity identity, DWORD access, DWORD share);
  ~FileUse();
  FileUse(const FileUse&) = delete;
  FileUse& operator=(const FileUse&) = delete;

  int descriptor() const { return descriptor_; }
  FileIdentity identity() const { return identity_; }
  bool agreesWith(const FileUse& other) const;

 private:
  const int descriptor_;
  const FileIdentity identity_;
  const DWORD access_;
  const DWORD share_;
};

// Replaces generic rights by the file rights that they stand for.
DWORD MapGenericRights(DWORD access);

// Takes over the descriptor. Null, with ERROR_SHARING_VIOLATION in `error`, when another use stands against
// it.
std::shared_ptr<FileUse> UseDescriptor(int descriptor, DWORD access, DWORD share, DWORD* error);

// The same for a file that need not be opened otherwise; `error` also tells why it cannot be reached.
std::shared_ptr<void> UseFile(const std::filesystem::path& hostPath, DWORD access, DWORD share, DWORD* error);

}  // namespace platform
