// What the families that work on files share: open files, host errors, and the steps of the public calls.
// Each DWORD result is an error code, 0 for success.
#pragma once

#include <sys/stat.h>
#include <windows.h>

#include <filesystem>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>

#include "file_use.h"
#include "layer.h"

namespace platform {

// An open file or folder.
class FileObject final : public KernelObject {
 public:
  FileObject(std::shared_ptr<FileUse> itsUse, DWORD itsAccess)
      : KernelObject("file"), use(std::move(itsUse)), access(itsAccess) {}

  const std::shared_ptr<FileUse> use;
  const DWORD access;   // without generic rights
  std::mutex position;  // guards the descriptor's offset from seek to read or write
};

struct OpenedFile {
  std::shared_ptr<FileUse> use;
  bool existed = false;
};
DWORD OpenFile(std::u16string_view name, DWORD access, DWORD share, DWORD disposition, DWORD flags,
               OpenedFile& opened);

// The error that errno stands for.
DWORD HostError();
// The owner write bit, looked at because the host's superuser is stopped by nothing.
bool IsWritable(const std::filesystem::path& path);
// Whether entries can be made and deleted in the folder of `path`.
bool IsFolderWritable(const std::filesystem::path& path);

// Whole files; writing creates or overwrites.
DWORD ReadWholeFile(std::u16string_view name, std::string& bytes);
DWORD WriteWholeFile(std::u16string_view name, std::string_view bytes);

DWORD DeleteHostEntry(const std::filesystem::path& path);  // a file, or an empty folder
DWORD MakeFolder(std::u16string_view name);
DWORD MakeFolders(std::u16string_view name);  // with its parents; no error when it exists

DWORD AttributesOf(const struct stat& status);

// A new file starts with the default access list even where the host gives it the identity of a deleted one.
void ForgetAccessList(FileIdentity identity);

// Zero-filled memory that LocalFree releases.
void* AllocateLocal(std::size_t size);

}  // namespace platform
