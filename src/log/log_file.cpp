// Location and handle of the log file, shared by all threads without a lock. The location is an immutable
// block and the open file another, each published with one atomic exchange. A file that was replaced is
// closed by whichever thread is the last to be writing, since a line may still be on its way to it.
#include "log/log_file.h"

#include <windows.h>

#include <shlobj.h>

#include <algorithm>
#include <atomic>
#include <ctime>
#include <exception>
#include <memory>
#include <utility>

#include "common/handles.h"
#include "common/names.h"
#include "log/log_security.h"

namespace {

constexpr DWORD shareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
constexpr DWORD openFlags = FILE_ATTRIBUTE_NORMAL | FILE_FLAG_BACKUP_SEMANTICS;
constexpr std::size_t longestPath = 1023;  // bytes, for folder and path alike

// ---- Location ------------------------------------------------------------------------------------------

std::string LogPath(std::string folder) {
  folder.resize(std::min(folder.size(), longestPath));
  std::string path = folder + "/" + "tessarine.log";
  path.resize(std::min(path.size(), longestPath));
  return path;
}

// The Windows directory in lower case with "\Logs" behind it, created when missing; empty when that cannot be
// had. A folder that is there may refuse its creation with more than one error, so its attributes decide.
std::string PrimaryFolder() {
  WCHAR directory[MAX_PATH + 1]{};
  const UINT length = GetWindowsDirectoryW(directory, MAX_PATH);
  if (length == 0 || length > MAX_PATH) return {};
  CharLowerW(directory);
  const WideString folder = WideString(directory) + TEXT("\\Logs");
  if (!CreateDirectoryW(folder.c_str(), nullptr)) {
    const DWORD attributes = GetFileAttributesW(folder.c_str());
    if (attributes == INVALID_FILE_ATTRIBUTES || (attributes & FILE_ATTRIBUTE_DIRECTORY) == 0) return {};
  }
  return WideToUtf8(folder);
}

// The user's local application data folder; empty when it cannot be had.
std::string FallbackFolder() {
  WCHAR folder[MAX_PATH]{};
  if (FAILED(SHGetFolderPathW(nullptr, CSIDL_LOCAL_APPDATA, nullptr, SHGFP_TYPE_CURRENT, folder))) return {};
  return WideToUtf8(folder);
}

struct Location {
  std::string path;          // UTF-8
  const Location* replaced;  // the one before the switch to the fallback; null: the primary one
};

std::atomic<const Location*> theLocation{nullptr};

// Publishes `made` in place of `expected`, or gives back what another thread has published meanwhile.
const Location& Publish(const Location* expected, std::unique_ptr<const Location> made) {
  if (theLocation.compare_exchange_strong(expected, made.get())) return *made.release();
  return *expected;
}

const Location& CurrentLocation() {
  if (const Location* location = theLocation.load()) return *location;
  return Publish(nullptr, std::make_unique<Location>(Location{LogPath(PrimaryFolder()), nullptr}));
}

const Location& SwitchToFallback(const Location& primary) {
  return Publish(&primary, std::make_unique<Location>(Location{LogPath(FallbackFolder()), &primary}));
}

// ---- The open file -------------------------------------------------------------------------------------

struct LogFile {
  UniqueFile handle;
  LogFile* next = nullptr;  // among the retired ones
};

std::atomic<LogFile*> current{nullptr};
std::atomic<LogFile*> retired{nullptr};
std::atomic<int> writers{0};
std::atomic<std::time_t> lastCheck{0};

void Retire(LogFile* file) {
  file->next = retired.load();
  while (!retired.compare_exchange_weak(file->next, file)) {
  }
}

// Marks a thread as writing. The last one out closes the files retired before: whoever could have loaded one
// of them has left by then, and whoever comes in later finds a newer one.
class Writing {
 public:
  Writing() { ++writers; }
  ~Writing() {
    LogFile* files = retired.exchange(nullptr);
    const bool last = --writers == 0;
    while (files != nullptr) {
      LogFile* const file = std::exchange(files, files->next);
      if (last) {
        delete file;
      } else {
        Retire(file);
      }
    }
  }
  Writing(const Writing&) = delete;
  Writing& operator=(const Writing&) = delete;
};

UniqueFile OpenForAppending(const Location& location) {
  const WideString path = Utf8ToWide(location.path);
  SetLastError(ERROR_SUCCESS);
  UniqueFile file(CreateFileW(path.c_str(), FILE_APPEND_DATA | READ_CONTROL | WRITE_DAC, shareAll, nullptr,
                              OPEN_ALWAYS, openFlags, nullptr));
  if (file && GetLastError() != ERROR_ALREADY_EXISTS) GrantInteractiveUsers(file.get());
  return file;
}

// The path still names the file that is open.
bool IsSameFile(const Location& location, HANDLE open) {
  const UniqueFile file(CreateFileW(Utf8ToWide(location.path).c_str(), GENERIC_READ, shareAll, nullptr,
                                    OPEN_EXISTING, openFlags, nullptr));
  if (!file) return false;
  BY_HANDLE_FILE_INFORMATION named, opened;
  return GetFileInformationByHandle(file.get(), &named) && GetFileInformationByHandle(open, &opened) &&
         named.dwVolumeSerialNumber == opened.dwVolumeSerialNumber &&
         named.nFileIndexHigh == opened.nFileIndexHigh && named.nFileIndexLow == opened.nFileIndexLow;
}

// Makes `file` (null: none) the current one.
void Replace(LogFile* file) {
  if (LogFile* old = current.exchange(file)) Retire(old);
}

// Opens the file in the current location or else in the fallback, and makes it the current one. Null when
// neither can be opened.
LogFile* OpenAnew() {
  const Location& location = CurrentLocation();
  UniqueFile handle = OpenForAppending(location);
  if (!handle && location.replaced == nullptr) {
    const Location& fallback = SwitchToFallback(location);
    Replace(nullptr);
    handle = OpenForAppending(fallback);
  }
  if (!handle) return nullptr;
  auto* file = new LogFile{std::move(handle)};
  Replace(file);
  return file;
}

// The file for the next line; the thread that claims a new second looks whether it is still the right one.
LogFile* FileForLine() {
  const std::time_t now = std::time(nullptr);
  LogFile* const file = current.load();
  if (file == nullptr) return OpenAnew();
  const bool claimed = lastCheck.load() != now && lastCheck.exchange(now) != now;
  if (!claimed || IsSameFile(CurrentLocation(), file->handle.get())) return file;
  return OpenAnew();
}

}  // namespace

void AppendToLog(std::string_view line) noexcept {
  const Writing writing;
  try {
    LogFile* const file = FileForLine();
    if (file == nullptr) return;
    OVERLAPPED atEnd{};
    atEnd.Offset = 0xFFFFFFFF;
    atEnd.OffsetHigh = 0xFFFFFFFF;
    DWORD written = 0;
    WriteFile(file->handle.get(), line.data(), static_cast<DWORD>(line.size()), &written, &atEnd);
  } catch (const std::exception&) {
    // Out of memory on the way to the file: the line is lost.
  }
}
