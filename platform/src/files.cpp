// Opening, reading and writing files. Sharing and access rights are checked here, not by the host; an append
// goes to the host as one appending write, so that it stays whole among other processes too.
#include "files.h"

#include <fcntl.h>
#include <sys/uio.h>
#include <unistd.h>

#include <cerrno>
#include <map>

#include "devices.h"

namespace platform {
namespace {

constexpr DWORD writingRights = FILE_WRITE_DATA | FILE_APPEND_DATA;

int HostFlags(DWORD access, bool folder) {
  if (folder) return O_RDONLY | O_DIRECTORY | O_CLOEXEC;
  const bool reads = access & FILE_READ_DATA, writes = access & writingRights;
  return (!writes ? O_RDONLY : reads ? O_RDWR : O_WRONLY) | O_CLOEXEC;
}

void CheckFlags(const char* function, DWORD flags, DWORD disposition, LPSECURITY_ATTRIBUTES security,
                HANDLE templateFile) {
  if (security) Unsupported(function, "security attributes");
  if (templateFile) Unsupported(function, "a template file");
  if (flags & ~(FILE_ATTRIBUTE_NORMAL | FILE_FLAG_BACKUP_SEMANTICS)) Unsupported(function, "flags");
  if (disposition < CREATE_NEW || disposition > OPEN_ALWAYS) Unsupported(function, "the disposition");
}

HANDLE CreateFile(const char* function, std::u16string_view name, DWORD access, DWORD share,
                  LPSECURITY_ATTRIBUTES security, DWORD disposition, DWORD flags, HANDLE templateFile) {
  if (IsDeviceName(name)) return OpenDevice(name, access, share, flags);
  CheckFlags(function, flags, disposition, security, templateFile);
  OpenedFile opened;
  if (const DWORD error = OpenFile(name, access, share, disposition, flags, opened)) {
    SetLastError(error);
    return INVALID_HANDLE_VALUE;
  }
  const HANDLE handle =
      AddHandle(std::make_shared<FileObject>(std::move(opened.use), MapGenericRights(access)));
  if (disposition == OPEN_ALWAYS || disposition == CREATE_ALWAYS) {
    SetLastError(opened.existed ? ERROR_ALREADY_EXISTS : ERROR_SUCCESS);
  }
  return handle;
}

BOOL Fail(DWORD error) {
  SetLastError(error);
  return FALSE;
}

}  // namespace

DWORD HostError() {
  static const std::map<int, DWORD> errors = {
      {ENOENT, ERROR_FILE_NOT_FOUND},      {ENOTDIR, ERROR_PATH_NOT_FOUND},
      {EACCES, ERROR_ACCESS_DENIED},       {EPERM, ERROR_ACCESS_DENIED},
      {EROFS, ERROR_ACCESS_DENIED},        {EISDIR, ERROR_ACCESS_DENIED},
      {EEXIST, ERROR_FILE_EXISTS},         {ENOTEMPTY, ERROR_DIR_NOT_EMPTY},
      {ENOSPC, ERROR_DISK_FULL},           {EDQUOT, ERROR_DISK_FULL},
      {EMFILE, ERROR_TOO_MANY_OPEN_FILES}, {ENFILE, ERROR_TOO_MANY_OPEN_FILES},
      {ENAMETOOLONG, ERROR_INVALID_NAME}};
  const auto known = errors.find(errno);
  return known == errors.end() ? ERROR_GEN_FAILURE : known->second;
}

bool IsWritable(const std::filesystem::path& path) {
  struct stat status;
  return stat(path.c_str(), &status) == 0 && (status.st_mode & S_IWUSR);
}

bool IsFolderWritable(const std::filesystem::path& path) {
  return IsWritable(path.parent_path());
}

DWORD OpenFile(std::u16string_view name, DWORD access, DWORD share, DWORD disposition, DWORD flags,
               OpenedFile& opened) {
  access = MapGenericRights(access);
  if (disposition == CREATE_ALWAYS) access |= FILE_WRITE_DATA;  // what emptying the file takes
  const HostPath host = ResolvePath(name);
  if (host.error) return host.error;
  const bool folder = host.exists && std::filesystem::is_directory(host.path);
  if (folder && disposition == CREATE_NEW) return ERROR_FILE_EXISTS;
  if (folder && (disposition == CREATE_ALWAYS || !(flags & FILE_FLAG_BACKUP_SEMANTICS))) {
    return ERROR_ACCESS_DENIED;
  }
  if (!host.exists && disposition != OPEN_EXISTING && !IsFolderWritable(host.path))
    return ERROR_ACCESS_DENIED;
  // Whoever makes the file knows it from the host, even when two processes come at once. A file that is
  // there, and taken away before it is opened, is made after all.
  const bool makes = disposition != OPEN_EXISTING && !folder;
  int descriptor = -1;
  do {
    if (makes) {
      descriptor = open(host.path.c_str(), HostFlags(access, false) | O_CREAT | O_EXCL, 0644);
      if (descriptor < 0 && (errno != EEXIST || disposition == CREATE_NEW)) return HostError();
    }
    opened.existed = descriptor < 0;
    if (opened.existed) {
      struct stat status;
      const bool readOnly = stat(host.path.c_str(), &status) == 0 && !(status.st_mode & S_IWUSR);
      if ((access & writingRights) && readOnly && !folder) return ERROR_ACCESS_DENIED;
      descriptor = open(host.path.c_str(), HostFlags(access, folder));
    }
  } while (descriptor < 0 && makes && errno == ENOENT);
  if (descriptor < 0) return HostError();
  DWORD error = 0;
  opened.use = UseDescriptor(descriptor, access, share, &error);
  if (!opened.use) return error;
  if (!opened.existed) ForgetAccessList(opened.use->identity());
  if (opened.existed && disposition == CREATE_ALWAYS && ftruncate(descriptor, 0) != 0) return HostError();
  return 0;
}

DWORD ReadWholeFile(std::u16string_view name, std::string& bytes) {
  OpenedFile file;
  if (const DWORD error = OpenFile(name, GENERIC_READ, FILE_SHARE_READ, OPEN_EXISTING, 0, file)) return error;
  bytes.clear();
  char part[4096];
  ssize_t count;
  while ((count = read(file.use->descriptor(), part, sizeof part)) > 0) {
    bytes.append(part, static_cast<std::size_t>(count));
  }
  return count == 0 ? 0 : HostError();
}

DWORD WriteWholeFile(std::u16string_view name, std::string_view bytes) {
  OpenedFile file;
  if (const DWORD error = OpenFile(name, GENERIC_WRITE, 0, CREATE_ALWAYS, 0, file)) return error;
  const ssize_t count = write(file.use->descriptor(), bytes.data(), bytes.size());
  if (count < 0) return HostError();
  return static_cast<std::size_t>(count) == bytes.size() ? 0 : ERROR_DISK_FULL;
}

DWORD AttributesOf(const struct stat& status) {
  const DWORD readOnly = status.st_mode & S_IWUSR ? 0 : FILE_ATTRIBUTE_READONLY;
  return readOnly | (S_ISDIR(status.st_mode) ? FILE_ATTRIBUTE_DIRECTORY : FILE_ATTRIBUTE_ARCHIVE);
}

}  // namespace platform

using platform::FileObject;

HANDLE WINAPI CreateFileW(LPCWSTR name, DWORD access, DWORD share, LPSECURITY_ATTRIBUTES security,
                          DWORD disposition, DWORD flags, HANDLE templateFile) {
  if (platform::CallFails("CreateFileW", ERROR_ACCESS_DENIED)) return INVALID_HANDLE_VALUE;
  return platform::CreateFile("CreateFileW", name, access, share, security, disposition, flags, templateFile);
}

HANDLE WINAPI CreateFileA(LPCSTR name, DWORD access, DWORD share, LPSECURITY_ATTRIBUTES security,
                          DWORD disposition, DWORD flags, HANDLE templateFile) {
  if (platform::CallFails("CreateFileA", ERROR_ACCESS_DENIED)) return INVALID_HANDLE_VALUE;
  return platform::CreateFile("CreateFileA", platform::ToUtf16(name), access, share, security, disposition,
                              flags, templateFile);
}

BOOL WINAPI ReadFile(HANDLE file, LPVOID buffer, DWORD size, LPDWORD read, LPOVERLAPPED overlapped) {
  if (platform::CallFails("ReadFile", ERROR_GEN_FAILURE)) return FALSE;
  if (overlapped || !read) platform::Unsupported("ReadFile", "anything but reading on from the last byte");
  *read = 0;
  const auto object = platform::Find<FileObject>(file);
  if (!object) return FALSE;
  if (!(object->access & FILE_READ_DATA)) return platform::Fail(ERROR_ACCESS_DENIED);
  std::lock_guard lock(object->position);
  const ssize_t count = ::read(object->use->descriptor(), buffer, size);
  if (count < 0) return platform::Fail(platform::HostError());
  *read = static_cast<DWORD>(count);
  return TRUE;
}

BOOL WINAPI WriteFile(HANDLE file, LPCVOID buffer, DWORD size, LPDWORD written, LPOVERLAPPED overlapped) {
  if (platform::CallFails("WriteFile", ERROR_DISK_FULL)) return FALSE;
  if (written) *written = 0;
  const auto object = platform::Find<FileObject>(file);
  if (!object) return FALSE;
  const bool toEnd = overlapped != nullptr;
  if (toEnd &&
      (overlapped->Offset != 0xFFFFFFFF || overlapped->OffsetHigh != 0xFFFFFFFF || overlapped->hEvent)) {
    platform::Unsupported("WriteFile", "an offset or an event");
  }
  // A handle that may only append has no other place to write to.
  const bool appends = toEnd || !(object->access & FILE_WRITE_DATA);
  if (!(object->access & (FILE_WRITE_DATA | FILE_APPEND_DATA))) return platform::Fail(ERROR_ACCESS_DENIED);
  const int descriptor = object->use->descriptor();
  std::lock_guard lock(object->position);
  const iovec bytes{const_cast<void*>(buffer), size};
  const ssize_t count = pwritev2(descriptor, &bytes, 1, -1, appends ? RWF_APPEND : 0);
  if (count < 0) return platform::Fail(platform::HostError());
  if (written) *written = static_cast<DWORD>(count);
  return static_cast<DWORD>(count) == size ? TRUE : platform::Fail(ERROR_DISK_FULL);
}

BOOL WINAPI GetFileInformationByHandle(HANDLE file, BY_HANDLE_FILE_INFORMATION* information) {
  if (platform::CallFails("GetFileInformationByHandle", ERROR_GEN_FAILURE)) return FALSE;
  const auto object = platform::Find<FileObject>(file);
  if (!object) return FALSE;
  struct stat status;
  if (fstat(object->use->descriptor(), &status) != 0) return platform::Fail(platform::HostError());
  const auto index = static_cast<std::uint64_t>(status.st_ino);
  *information = {static_cast<DWORD>(status.st_dev), static_cast<DWORD>(index >> 32),
                  static_cast<DWORD>(index)};
  return TRUE;
}
