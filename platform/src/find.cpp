// Enumeration of a folder. The names are taken once, when the search begins; an entry that has gone by the
// time its turn comes is passed over.
#include <algorithm>
#include <vector>

#include "files.h"

namespace platform {
namespace {

namespace fs = std::filesystem;

class Search final : public Object {
 public:
  Search(fs::path folder, std::vector<std::u16string> names)
      : Object("find"), folder_(std::move(folder)), names_(std::move(names)) {}

  // False at the end.
  bool Next(WIN32_FIND_DATAW& data) {
    std::lock_guard lock(mutex_);
    while (next_ < names_.size()) {
      const std::u16string& name = names_[next_++];
      struct stat status;
      if (stat((folder_ / ToUtf8(name)).c_str(), &status) != 0) continue;
      data = {AttributesOf(status), {}};
      std::copy_n(name.begin(), std::min<std::size_t>(name.size(), MAX_PATH - 1), data.cFileName);
      return true;
    }
    return false;
  }

 private:
  std::mutex mutex_;
  const fs::path folder_;
  const std::vector<std::u16string> names_;
  std::size_t next_ = 0;
};

DWORD Begin(std::u16string_view pattern, WIN32_FIND_DATAW& data, std::shared_ptr<Search>& search) {
  const std::size_t split = pattern.find_last_of(u"\\/") + 1;  // 0 without a separator
  const HostPath host = ResolvePath(split == 0 ? u"." : pattern.substr(0, split));
  if (host.error) return host.error;
  if (!host.exists || !fs::is_directory(host.path)) return ERROR_PATH_NOT_FOUND;
  const std::u16string_view wanted = pattern.substr(split), ending = wanted.substr(wanted.starts_with(u'*'));
  if (ending == wanted || ending.ends_with(u'.') ||
      ending.find_first_of(u"*?") != std::u16string_view::npos) {
    Unsupported("FindFirstFileW", "a pattern other than an asterisk and an ending");
  }
  std::vector<std::u16string> names;
  std::error_code failed;
  for (fs::directory_iterator i(host.path, failed), end; !failed && i != end; i.increment(failed)) {
    names.push_back(ToUtf16(i->path().filename().string()));
  }
  if (failed) return ERROR_ACCESS_DENIED;
  std::sort(names.begin(), names.end(), [](const std::u16string& a, const std::u16string& b) {
    const int order = CompareNames(a, b);
    return order != 0 ? order < 0 : a < b;
  });
  names.insert(names.begin(), {u".", u".."});
  std::erase_if(names, [&](std::u16string_view name) {
    return name.size() < ending.size() || !EqualNames(name.substr(name.size() - ending.size()), ending);
  });
  search = std::make_shared<Search>(host.path, std::move(names));
  return search->Next(data) ? 0 : ERROR_FILE_NOT_FOUND;
}

}  // namespace
}  // namespace platform

HANDLE WINAPI FindFirstFileW(LPCWSTR pattern, WIN32_FIND_DATAW* data) {
  if (platform::CallFails("FindFirstFileW", ERROR_ACCESS_DENIED)) return INVALID_HANDLE_VALUE;
  std::shared_ptr<platform::Search> search;
  if (const DWORD error = platform::Begin(pattern, *data, search)) {
    SetLastError(error);
    return INVALID_HANDLE_VALUE;
  }
  return platform::AddHandle(std::move(search));
}

BOOL WINAPI FindNextFileW(HANDLE find, WIN32_FIND_DATAW* data) {
  if (platform::CallFails("FindNextFileW", ERROR_NO_MORE_FILES)) return FALSE;
  const auto search = platform::Find<platform::Search>(find);
  if (!search) return FALSE;
  if (search->Next(*data)) return TRUE;
  SetLastError(ERROR_NO_MORE_FILES);
  return FALSE;
}

BOOL WINAPI FindClose(HANDLE find) {
  platform::CallPasses("FindClose");
  return platform::Close<platform::Search>("FindClose", find) != nullptr;
}
