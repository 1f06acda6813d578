// Executables under an update of their resources. An input is a byte that says which resource is written or
// deleted, one for its size, and the file.
#include <platform/control.h>

#include <cstring>

#include "fuzz/pe_file.h"
#include "trials/fuzzing.h"

namespace {

constexpr const WCHAR* path = TEXT("C:\\image.exe");
using fuzz::Check;

struct Change {
  WORD type, name;
  bool deletes;
  pe::Bytes data;
  std::string Key() const { return std::to_string(type) + "/" + std::to_string(name) + "/0"; }
};

// Changes the file; false, or the resources that it has then.
void Update(const Change& change) {
  const pe::Bytes before = pe::Read(path);
  auto had = pe::List(path);
  const HANDLE update = BeginUpdateResourceW(path, FALSE);
  Check((update != nullptr) == had.has_value(), "readable and open to updates go together");
  if (update) {
    const auto type = MAKEINTRESOURCEW(change.type), name = MAKEINTRESOURCEW(change.name);
    const bool written = change.deletes ? UpdateResourceW(update, type, name, 0, nullptr, 0)
                                        : pe::Put(update, type, name, 0, change.data);
    Check(written || change.deletes, "a resource is not taken");
    if (EndUpdateResourceW(update, FALSE)) {
      auto has = pe::List(path);
      Check(has.has_value(), "an updated file cannot be read");
      // Lists end at a name that cannot be looked up, such as one in lower case.
      Check(!change.deletes || !has->contains(change.Key()), "a deleted resource is still there");
      const HMODULE module = LoadLibraryExW(path, nullptr, LOAD_LIBRARY_AS_DATAFILE);
      Check(change.deletes || pe::Find(module, type, name, 0) == change.data,
            "another resource than written");
      FreeLibrary(module);
      has->erase(change.Key());
      had->erase(change.Key());
      Check(*has == *had, "other resources have changed");
    } else {
      Check(pe::Read(path) == before, "a failed update changed the file");
    }
  } else {
    Check(pe::Read(path) == before, "a refused update changed the file");
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const std::filesystem::path folder = fuzz::GuestFolder();
  platform::SetGuestRoot(folder);
  if (size < 2) return 0;
  pe::Write(path, {reinterpret_cast<const char*>(data + 2), size - 2});
  Change change{10, WORD(data[0] & 1 ? 1 : 300), (data[0] & 2) != 0,
                pe::Bytes(std::size_t{1} + data[1] * 37, 'x')};
  if (data[0] & 4) change.type = 3;
  Update(change);
  Update({3, 449, false, "icon"});  // once more, whatever the first left
  Check(platform::Census().empty(), "something is left open");
  const auto files = std::distance(std::filesystem::directory_iterator(folder), {});
  Check(files == 1, "a temporary file is left");
  return 0;
}

// Numbers of the headers and of the resource directory decide; bytes of code do not.
extern "C" std::size_t LLVMFuzzerCustomMutator(std::uint8_t* data, std::size_t size, std::size_t maxSize,
                                               unsigned int seed) {
  const std::size_t fields = seed / 4 % 2 == 0 ? 0x200 : size;  // the headers, or anywhere
  const std::size_t field = 2 + seed / 8 % 2048 * 2 % std::max<std::size_t>(fields, 1);
  if (seed % 4 == 0 || field + 4 > size) return LLVMFuzzerMutate(data, size, maxSize);
  constexpr std::uint32_t values[] = {0,          1,     2,      0x80000000, 0xFFFFFFFF,
                                      0x7FFFFFFF, 0x200, 0x1000, 0x2000,     0x10000};
  std::uint32_t number;
  std::memcpy(&number, data + field, sizeof number);
  const std::uint32_t step = values[seed / 0x4000 % std::size(values)];
  number = seed % 4 == 1 ? step : seed % 4 == 2 ? number + step : number - step;
  std::memcpy(data + field, &number, sizeof number);
  return size;
}
