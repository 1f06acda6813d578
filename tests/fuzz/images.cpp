// Executables under an update of their resources. An input is a byte that says which resource is written or
// deleted, one for its size, and the file.
#include <platform/control.h>

#include <cstring>
#include <optional>

#include "common/handles.h"
#include "fuzz/fuzzing.h"
#include "host/guest_view.h"
#include "host/launcher_view.h"
#include "trials/exchanges.h"

namespace {

using fuzz::Check;

const std::string path = "C:\\image.exe";

// The resources of the file, none when it cannot be read.
std::optional<host::Resources> Resources() {
  if (!UniqueModule(LoadLibraryExW(host::Widen(path).c_str(), nullptr, LOAD_LIBRARY_AS_DATAFILE))) return {};
  return host::ReadResources(path);
}

// Writes or, without data, deletes one resource. The file is changed in that resource alone, or not at all.
void Update(WORD type, WORD name, std::string data) {
  const std::optional<std::string> before = host::ReadGuestFile(path);
  std::optional<host::Resources> had = Resources();
  const HANDLE update = BeginUpdateResourceW(host::Widen(path).c_str(), FALSE);
  Check((update != nullptr) == had.has_value(), "readable and open to updates go together");
  const bool written = UpdateResourceW(update, MAKEINTRESOURCEW(type), MAKEINTRESOURCEW(name), 0,
                                       data.empty() ? nullptr : data.data(), static_cast<DWORD>(data.size()));
  Check(!update || written || data.empty(), "a resource is not taken");
  if (!update || !EndUpdateResourceW(update, FALSE))
    return Check(host::ReadGuestFile(path) == before,
                 "an update that was refused or failed changed the file");
  const std::optional<host::Resources> has = Resources();
  Check(has.has_value(), "an updated file cannot be read");
  had->erase({type, name, 0});
  if (!data.empty()) had->insert({{type, name, 0}, data});
  Check(*has == *had, "another resource than written, or others have changed");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const std::filesystem::path folder = fuzz::GuestFolder();
  platform::SetGuestRoot(folder);
  if (size < 2) return 0;
  trials::PutFile(path, {reinterpret_cast<const char*>(data + 2), size - 2});
  Update(data[0] & 4 ? 3 : 10, data[0] & 1 ? 1 : 300, std::string(data[0] & 2 ? 0 : 1 + data[1] * 37, 'x'));
  Update(3, 449, "icon");  // once more, whatever the first left
  Check(platform::Census().empty(), "something is left open");
  const auto files = std::distance(std::filesystem::directory_iterator(folder), {});
  Check(files == 1, "a temporary file is left");
  return 0;
}

// Numbers of the headers decide; bytes of code do not.
extern "C" std::size_t LLVMFuzzerCustomMutator(std::uint8_t* data, std::size_t size, std::size_t maxSize,
                                               unsigned int seed) {
  const std::size_t number = 2 + seed / 4 % 0x100 * 2;
  if (seed % 4 == 0 || number + 4 > size) return LLVMFuzzerMutate(data, size, maxSize);
  LLVMFuzzerMutate(data + number, 4, 4);
  return size;
}
