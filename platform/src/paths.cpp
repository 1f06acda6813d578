// Guest paths: the guest root stands for drive C. Each component is looked up without regard to case, the
// exact spelling first, so a path of existing components costs one host look-up each.
#include <platform/control.h>
#include <algorithm>
#include <cstdlib>
#include <mutex>

#include "layer.h"

namespace platform {
namespace {

namespace fs = std::filesystem;

struct Root {
  std::mutex mutex;
  fs::path folder;
};

Root& TheRoot() {
  static auto* root = [] {
    auto* made = new Root;
    if (const char* folder = std::getenv("PLATFORM_GUEST_ROOT")) {
      made->folder = folder;
      fs::create_directories(made->folder);
    }
    return made;
  }();
  return *root;
}

bool IsSeparator(char16_t c) {
  return c == u'\\' || c == u'/';
}

bool IsValidName(std::u16string_view name) {
  return name.find_first_of(u"<>:\"|?*") == std::u16string_view::npos &&
         std::find_if(name.begin(), name.end(), [](char16_t c) { return c < 32; }) == name.end() &&
         name.size() <= 255;
}

// The entry of `folder` that `name` names, in the host's spelling; empty when there is none.
fs::path FindEntry(const fs::path& folder, std::u16string_view name) {
  fs::path exact = folder / ToUtf8(name);
  std::error_code failed;
  if (fs::exists(fs::symlink_status(exact, failed))) return exact;
  for (fs::directory_iterator i(folder, failed), end; !failed && i != end; i.increment(failed)) {
    if (EqualNames(ToUtf16(i->path().filename().string()), name)) return i->path();
  }
  return {};
}

}  // namespace

void SetGuestRoot(const fs::path& folder) {
  fs::create_directories(folder);
  std::lock_guard lock(TheRoot().mutex);
  TheRoot().folder = fs::absolute(folder);
}

fs::path GuestRoot() {
  std::lock_guard lock(TheRoot().mutex);
  if (TheRoot().folder.empty()) Unsupported("guest files", "no guest root is set");
  return TheRoot().folder;
}

HostPath ResolvePath(std::u16string_view guestPath) {
  if (guestPath.starts_with(u"\\\\?\\")) guestPath.remove_prefix(4);
  if (guestPath.empty()) return {.error = ERROR_PATH_NOT_FOUND};
  if (guestPath.size() >= 2 && guestPath[1] == u':') {
    if (Upcase(guestPath[0]) != u'C') return {.error = ERROR_PATH_NOT_FOUND};
    guestPath.remove_prefix(2);
  }
  HostPath result{.exists = true, .path = GuestRoot()};
  while (true) {
    while (!guestPath.empty() && IsSeparator(guestPath.front())) guestPath.remove_prefix(1);
    if (guestPath.empty()) return result;
    const auto length = static_cast<std::size_t>(
        std::find_if(guestPath.begin(), guestPath.end(), IsSeparator) - guestPath.begin());
    const std::u16string_view name = guestPath.substr(0, length);
    guestPath.remove_prefix(length);
    if (!result.exists || !fs::is_directory(result.path)) return {.error = ERROR_PATH_NOT_FOUND};
    if (name == u".") continue;
    if (name == u"..") {
      if (result.path != GuestRoot()) result.path = result.path.parent_path();
      continue;
    }
    if (!IsValidName(name)) return {.error = ERROR_INVALID_NAME};
    const fs::path entry = FindEntry(result.path, name);
    result.exists = !entry.empty();
    result.path = result.exists ? entry : result.path / ToUtf8(name);
  }
}

}  // namespace platform
