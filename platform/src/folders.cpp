// The shell's side of folders: special folders, creation with parents, deletion of whole trees, and the
// record of change notifications. A read-only file does not stop a tree's deletion; a denied folder and an
// open file do.
#include <platform/control.h>
#include <shlobj.h>

#include <algorithm>
#include <mutex>
#include <vector>

#include "files.h"

namespace platform {
namespace {

namespace fs = std::filesystem;

std::u16string_view SpecialFolder(const char* function, int folder) {
  if (folder == CSIDL_APPDATA) return u"C:\\Users\\guest\\AppData\\Roaming";
  if (folder == CSIDL_LOCAL_APPDATA) return u"C:\\Users\\guest\\AppData\\Local";
  if (folder != CSIDL_PROGRAMS) Unsupported(function, "the folder");
  return u"C:\\Users\\guest\\AppData\\Roaming\\Microsoft\\Windows\\Start Menu\\Programs";
}

DWORD GiveSpecialFolder(const char* function, int folder, bool create, LPWSTR path) {
  const std::u16string_view name = SpecialFolder(function, folder);
  if (const DWORD error = create ? MakeFolders(name) : 0) return error;
  const HostPath host = ResolvePath(name);
  if (host.error || !fs::is_directory(host.path)) return ERROR_PATH_NOT_FOUND;
  std::copy(name.begin(), name.end(), path);
  path[name.size()] = 0;
  return 0;
}

// Deletes in the order of names and stops at the first entry that cannot go.
DWORD DeleteTree(const fs::path& path) {
  if (!fs::is_directory(fs::symlink_status(path))) return DeleteHostEntry(path);
  std::vector<fs::path> entries;
  std::error_code failed;
  for (fs::directory_iterator i(path, failed), end; !failed && i != end; i.increment(failed)) {
    entries.push_back(i->path());
  }
  if (failed) return ERROR_ACCESS_DENIED;
  std::sort(entries.begin(), entries.end());
  for (const fs::path& entry : entries) {
    if (const DWORD error = DeleteTree(entry)) return error;
  }
  return DeleteHostEntry(path);
}

struct Notifications {
  std::mutex mutex;
  std::vector<LONG> events;
};
Notifications& TheNotifications() {
  static auto* notifications = new Notifications;
  return *notifications;
}

}  // namespace

std::vector<LONG> TakeChangeNotifications() {
  std::lock_guard lock(TheNotifications().mutex);
  return std::exchange(TheNotifications().events, {});
}

}  // namespace platform

BOOL WINAPI SHGetSpecialFolderPathW(HWND, LPWSTR path, int folder, BOOL create) {
  constexpr auto name = "SHGetSpecialFolderPathW";
  if (platform::CallFails(name, ERROR_PATH_NOT_FOUND)) return FALSE;
  const DWORD error = platform::GiveSpecialFolder(name, folder, create, path);
  if (error) SetLastError(error);
  return error == 0;
}

HRESULT WINAPI SHGetFolderPathW(HWND, int folder, HANDLE token, DWORD type, LPWSTR path) {
  constexpr auto name = "SHGetFolderPathW";
  if (platform::CallFails(name, ERROR_PATH_NOT_FOUND)) return HRESULT_FROM_WIN32(platform::PlannedError());
  if (token || type != SHGFP_TYPE_CURRENT) platform::Unsupported(name, "another user or type");
  return HRESULT_FROM_WIN32(platform::GiveSpecialFolder(name, folder, false, path));
}

int WINAPI SHCreateDirectoryExW(HWND, LPCWSTR path, const SECURITY_ATTRIBUTES* security) {
  constexpr auto name = "SHCreateDirectoryExW";
  if (platform::CallFails(name, ERROR_ACCESS_DENIED)) return static_cast<int>(platform::PlannedError());
  if (security) platform::Unsupported(name, "security attributes");
  if (platform::ResolvePath(path).exists) return ERROR_ALREADY_EXISTS;
  return static_cast<int>(platform::MakeFolders(path));
}

int WINAPI SHFileOperationW(SHFILEOPSTRUCTW* operation) {
  constexpr auto name = "SHFileOperationW";
  if (platform::CallFails(name, ERROR_ACCESS_DENIED)) return static_cast<int>(platform::PlannedError());
  if (operation->wFunc != FO_DELETE || operation->pTo || operation->hwnd ||
      operation->fFlags != (FOF_SILENT | FOF_NOCONFIRMATION | FOF_NOERRORUI)) {
    platform::Unsupported(name, "anything but silent deletion");
  }
  operation->fAnyOperationsAborted = FALSE;
  const std::u16string_view path = operation->pFrom;
  if (operation->pFrom[path.size() + 1] != 0) platform::Unsupported(name, "several names");
  if (path.find_first_of(u"*?") != std::u16string_view::npos) platform::Unsupported(name, "wildcards");
  const platform::HostPath host = platform::ResolvePath(path);
  if (!host.error && host.exists) return static_cast<int>(platform::DeleteTree(host.path));
  return static_cast<int>(host.error ? host.error : ERROR_FILE_NOT_FOUND);
}

void WINAPI SHChangeNotify(LONG event, UINT flags, LPCVOID item1, LPCVOID item2) {
  platform::CallPasses("SHChangeNotify");
  if (flags != SHCNF_IDLIST || item1 || item2) platform::Unsupported("SHChangeNotify", "an item");
  std::lock_guard lock(platform::TheNotifications().mutex);
  platform::TheNotifications().events.push_back(event);
}
