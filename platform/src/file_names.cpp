// Calls on files and folders by name: deletion, copies, attributes, folders, and the folders of the system.
// Deleting a file that is open with delete sharing takes the name at once; the handles stay usable.
#include <fcntl.h>
#include <sys/sendfile.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>

#include "files.h"

namespace platform {
namespace {

// What a call on an existing object of any kind starts with.
DWORD ResolveExisting(LPCWSTR name, HostPath& host) {
  host = ResolvePath(name);
  return host.error ? host.error : host.exists ? 0 : ERROR_FILE_NOT_FOUND;
}

DWORD DeleteNamedFile(LPCWSTR name) {
  HostPath host;
  if (const DWORD error = ResolveExisting(name, host)) return error;
  if (std::filesystem::is_directory(host.path) || !IsWritable(host.path)) return ERROR_ACCESS_DENIED;
  return DeleteHostEntry(host.path);
}

DWORD CopyBytes(int from, int to) {
  constexpr std::size_t most = 1u << 30;
  ssize_t count;
  while ((count = sendfile(to, from, nullptr, most)) > 0) continue;
  if (count < 0) return HostError();
  struct stat status;
  if (fstat(from, &status) != 0) return HostError();
  const timespec times[] = {status.st_atim, status.st_mtim};
  if (futimens(to, times) != 0 || fchmod(to, status.st_mode & 0777) != 0) return HostError();
  return 0;
}

DWORD CopyNamedFile(LPCWSTR from, LPCWSTR to, BOOL failIfExists) {
  OpenedFile source, target;
  // Reading only beside readers is also what keeps a file from being copied onto itself.
  DWORD error = OpenFile(from, GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_DELETE, OPEN_EXISTING, 0, source);
  if (error) return error;
  error = OpenFile(to, GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE,
                   failIfExists ? CREATE_NEW : CREATE_ALWAYS, 0, target);
  if (error) return error;
  error = CopyBytes(source.use->descriptor(), target.use->descriptor());
  if (error) unlink(ResolvePath(to).path.c_str());
  return error;
}

BOOL Done(DWORD error) {
  if (error) SetLastError(error);
  return error == 0;
}

}  // namespace

DWORD DeleteHostEntry(const std::filesystem::path& path) {
  if (!IsFolderWritable(path) || (std::filesystem::is_directory(path) && !IsWritable(path)))
    return ERROR_ACCESS_DENIED;
  DWORD error = 0;
  const auto use = UseFile(path, DELETE, shareAll, &error);
  if (!use) return error;
  return std::remove(path.c_str()) == 0 ? 0 : HostError();
}

DWORD MakeFolder(std::u16string_view name) {
  const HostPath host = ResolvePath(name);
  if (host.error) return host.error;
  if (host.exists) return ERROR_ALREADY_EXISTS;
  if (!IsFolderWritable(host.path)) return ERROR_ACCESS_DENIED;
  if (mkdir(host.path.c_str(), 0755) == 0) return 0;
  return errno == EEXIST ? ERROR_ALREADY_EXISTS : HostError();
}

DWORD MakeFolders(std::u16string_view name) {
  for (std::size_t end = 0; end < name.size();) {
    end = std::min(name.find_first_of(u"\\/", end + 1), name.size());
    const DWORD error = MakeFolder(name.substr(0, end));
    if (error && error != ERROR_ALREADY_EXISTS) return error;
  }
  return 0;
}

}  // namespace platform

BOOL WINAPI DeleteFileW(LPCWSTR name) {
  if (platform::CallFails("DeleteFileW", ERROR_ACCESS_DENIED)) return FALSE;
  return platform::Done(platform::DeleteNamedFile(name));
}

BOOL WINAPI CopyFileW(LPCWSTR from, LPCWSTR to, BOOL failIfExists) {
  if (platform::CallFails("CopyFileW", ERROR_DISK_FULL)) return FALSE;
  return platform::Done(platform::CopyNamedFile(from, to, failIfExists));
}

DWORD WINAPI GetFileAttributesW(LPCWSTR name) {
  if (platform::CallFails("GetFileAttributesW", ERROR_ACCESS_DENIED)) return INVALID_FILE_ATTRIBUTES;
  platform::HostPath host;
  struct stat status;
  DWORD error = platform::ResolveExisting(name, host);
  if (!error && stat(host.path.c_str(), &status) != 0) error = platform::HostError();
  return platform::Done(error) ? platform::AttributesOf(status) : INVALID_FILE_ATTRIBUTES;
}

BOOL WINAPI CreateDirectoryW(LPCWSTR name, LPSECURITY_ATTRIBUTES security) {
  if (platform::CallFails("CreateDirectoryW", ERROR_ACCESS_DENIED)) return FALSE;
  if (security) platform::Unsupported("CreateDirectoryW", "security attributes");
  return platform::Done(platform::MakeFolder(name));
}

UINT WINAPI GetWindowsDirectoryW(LPWSTR buffer, UINT size) {
  if (platform::CallFails("GetWindowsDirectoryW", ERROR_NOT_ENOUGH_MEMORY)) return 0;
  constexpr std::u16string_view folder = u"C:\\Windows";
  if (!platform::ResolvePath(folder).exists) platform::MakeFolder(folder);  // no drive C is without it
  if (size <= folder.size()) return static_cast<UINT>(folder.size() + 1);
  std::copy_n(folder.data(), folder.size() + 1, buffer);
  return static_cast<UINT>(folder.size());
}
