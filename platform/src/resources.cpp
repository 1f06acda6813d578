// Modules as data, their resources, and updates of them. A module is its resource tree and the use of its
// file; a resource handle points into that tree, so it is good for as long as the module is loaded.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <fstream>

#include "files.h"
#include "pe_image.h"

namespace platform {
namespace {

namespace fs = std::filesystem;

struct Module : Object {
  Module(std::shared_ptr<void> fileUse, ResourceTree resources)
      : Object("module"), use(std::move(fileUse)), tree(std::move(resources)) {}
  const std::shared_ptr<void> use;
  ResourceTree tree;
};

struct Update : Object {
  Update(fs::path file, ResourceTree resources)
      : Object("update"), path(std::move(file)), tree(std::move(resources)) {}
  const fs::path path;
  ResourceTree tree;
};

// Fails the call with `error`; what it returns converts to every kind of failure.
std::nullptr_t Failed(DWORD error) {
  SetLastError(error);
  return nullptr;
}

// ---- Files ---------------------------------------------------------------------------------------------

std::optional<PeImage> ReadImage(const fs::path& path) {
  std::ifstream in(path, std::ios::binary | std::ios::ate);
  const auto size = in ? static_cast<std::streamsize>(in.tellg()) : 0;
  Bytes bytes(static_cast<std::size_t>(size));
  in.seekg(0).read(reinterpret_cast<char*>(bytes.data()), size);
  return in ? ParseImage(std::move(bytes)) : std::nullopt;
}

bool WriteAll(int file, const Bytes& bytes) {
  for (std::size_t done = 0; done < bytes.size();) {
    const ssize_t count = write(file, bytes.data() + done, bytes.size() - done);
    if (count < 0 && errno != EINTR) return false;
    if (count > 0) done += static_cast<std::size_t>(count);
  }
  return true;
}

// Puts `bytes` in the place of an existing file, whose mode stays; 0 or an error, with the file as it was.
DWORD ReplaceFile(const fs::path& path, const Bytes& bytes) {
  struct stat before, after;
  if (stat(path.c_str(), &before) != 0) return HostError();
  std::string temporary = path.parent_path() / "RCXXXXXXX";
  const int file = mkstemp(temporary.data());
  if (file < 0) return HostError();
  const bool written =
      fchmod(file, before.st_mode & 07777) == 0 && fstat(file, &after) == 0 && WriteAll(file, bytes);
  DWORD error = written ? 0 : HostError();
  if (written) ForgetAccessList({after.st_dev, after.st_ino});
  if (close(file) != 0 && error == 0) error = HostError();
  if (error == 0 && rename(temporary.c_str(), path.c_str()) != 0) error = HostError();
  if (error != 0) unlink(temporary.c_str());
  return error;
}

DWORD Commit(const Update& update) {
  std::error_code failed;
  if (!fs::exists(update.path, failed)) return ERROR_FILE_NOT_FOUND;
  if (!IsWritable(update.path) || !IsFolderWritable(update.path)) return ERROR_ACCESS_DENIED;
  DWORD error = 0;
  const auto use = UseFile(update.path, GENERIC_READ | GENERIC_WRITE | DELETE, FILE_SHARE_READ, &error);
  if (!use) return ERROR_OPEN_FAILED;
  auto image = ReadImage(update.path);
  if (!image) return ERROR_BAD_EXE_FORMAT;
  const auto bytes = ReplaceResources(*std::move(image), update.tree);
  return bytes ? ReplaceFile(update.path, *bytes) : ERROR_BAD_EXE_FORMAT;
}

HMODULE Load(LPCWSTR name, bool asData) {
  if (!name) return Failed(ERROR_INVALID_PARAMETER);
  const HostPath host = ResolvePath(name);
  std::error_code failed;
  if (host.error != 0 || !host.exists || !fs::is_regular_file(host.path, failed)) {
    return Failed(asData ? ERROR_FILE_NOT_FOUND : ERROR_MOD_NOT_FOUND);
  }
  DWORD error = 0;
  auto use = UseFile(host.path, GENERIC_READ, FILE_SHARE_READ, &error);
  if (!use) return Failed(error);
  const auto image = ReadImage(host.path);
  if (!image || (!asData && !image->wide)) return Failed(ERROR_BAD_EXE_FORMAT);
  auto tree = ReadResources(*image);
  if (!tree) return Failed(ERROR_BAD_EXE_FORMAT);
  return static_cast<HMODULE>(AddHandle(std::make_shared<Module>(std::move(use), *std::move(tree))));
}

// ---- Names ---------------------------------------------------------------------------------------------

ResourceName ToName(LPCWSTR name) {
  if (IS_INTRESOURCE(name)) return static_cast<WORD>(reinterpret_cast<ULONG_PTR>(name));
  std::u16string text(name);
  for (char16_t& unit : text) unit = Upcase(unit);
  return text;
}

// "#" with digits would be another way to write a number.
bool IsStorable(const ResourceName& name) {
  const auto* text = std::get_if<std::u16string>(&name);
  return text == nullptr || (!text->starts_with(u'#') && text->size() <= 0xFFFF);
}

// A name as callbacks get it: a number in the shape of a pointer, or the text, which `name` keeps.
LPWSTR ToPointer(ResourceName& name) {
  if (auto* text = std::get_if<std::u16string>(&name)) return text->data();
  return MAKEINTRESOURCEW(std::get<WORD>(name));
}

// ---- Look-up; each sets the last error of the level where it ends ----------------------------------------

template <class Children>
auto* FindChild(Children& children, LPCWSTR name, DWORD missing) {
  const auto child = children.find(ToName(name));
  if (child != children.end()) return &child->second;
  SetLastError(missing);
  return static_cast<decltype(&child->second)>(nullptr);
}

ResourceNames* FindType(Module& module, LPCWSTR type) {
  if (module.tree.empty()) return Failed(ERROR_RESOURCE_DATA_NOT_FOUND);
  return FindChild(module.tree, type, ERROR_RESOURCE_TYPE_NOT_FOUND);
}

ResourceLanguages* FindLanguages(Module& module, LPCWSTR type, LPCWSTR name) {
  ResourceNames* names = FindType(module, type);
  return names ? FindChild(*names, name, ERROR_RESOURCE_NAME_NOT_FOUND) : nullptr;
}

HRSRC FindLanguage(HMODULE module, LPCWSTR type, LPCWSTR name, WORD language) {
  if (!module) Unsupported("FindResourceExW", "the program's own resources");
  const auto object = Find<Module>(module);
  ResourceLanguages* languages = object ? FindLanguages(*object, type, name) : nullptr;
  if (!languages) return nullptr;
  constexpr WORD primaryMask = 0x3FF, ofUser = 0x0409;
  auto found = languages->find(language);
  if (found != languages->end()) return reinterpret_cast<HRSRC>(&found->second);
  if ((language & primaryMask) != LANG_NEUTRAL)
    Unsupported("FindResourceExW", "a language that is not there");
  found = languages->find(LANG_NEUTRAL);
  if (found == languages->end()) found = languages->find(ofUser);
  if (found == languages->end()) found = languages->begin();
  if (found == languages->end()) return Failed(ERROR_RESOURCE_LANG_NOT_FOUND);
  return reinterpret_cast<HRSRC>(&found->second);
}

// Visits all children until one visit says FALSE.
template <class Children, class Visit>
BOOL VisitAll(Children& children, Visit visit) {
  for (auto& [key, child] : children) {
    auto copy = key;
    if (visit(copy)) continue;
    SetLastError(ERROR_RESOURCE_ENUM_USER_STOP);
    return FALSE;
  }
  return TRUE;
}

}  // namespace
}  // namespace platform

using namespace platform;

// ---- Modules -------------------------------------------------------------------------------------------

HMODULE WINAPI LoadLibraryW(LPCWSTR name) {
  if (CallFails("LoadLibraryW", ERROR_MOD_NOT_FOUND)) return nullptr;
  return Load(name, false);
}

HMODULE WINAPI LoadLibraryExW(LPCWSTR name, HANDLE file, DWORD flags) {
  if (CallFails("LoadLibraryExW", ERROR_FILE_NOT_FOUND)) return nullptr;
  if (file || (flags & ~LOAD_LIBRARY_AS_DATAFILE) != 0) Unsupported("LoadLibraryExW", "a file or a flag");
  return Load(name, flags != 0);
}

BOOL WINAPI FreeLibrary(HMODULE module) {
  CallPasses("FreeLibrary");
  if (Close<Module>("FreeLibrary", module)) return TRUE;
  SetLastError(ERROR_MOD_NOT_FOUND);
  return FALSE;
}

HRSRC WINAPI FindResourceExW(HMODULE module, LPCWSTR type, LPCWSTR name, WORD language) {
  if (CallFails("FindResourceExW", ERROR_RESOURCE_NAME_NOT_FOUND)) return nullptr;
  return FindLanguage(module, type, name, language);
}

DWORD WINAPI SizeofResource(HMODULE module, HRSRC resource) {
  if (CallFails("SizeofResource", ERROR_INVALID_HANDLE)) return 0;
  if (!Find<Module>(module) || !resource) return 0;
  return static_cast<DWORD>(reinterpret_cast<Resource*>(resource)->data.size());
}

HGLOBAL WINAPI LoadResource(HMODULE module, HRSRC resource) {
  if (CallFails("LoadResource", ERROR_INVALID_HANDLE)) return nullptr;
  return Find<Module>(module) ? reinterpret_cast<HGLOBAL>(resource) : nullptr;
}

LPVOID WINAPI LockResource(HGLOBAL resource) {
  if (CallFails("LockResource", ERROR_INVALID_HANDLE)) return nullptr;
  return resource ? static_cast<Resource*>(resource)->data.data() : nullptr;
}

BOOL WINAPI EnumResourceTypesW(HMODULE module, ENUMRESTYPEPROCW visit, LONG_PTR param) {
  if (CallFails("EnumResourceTypesW", ERROR_RESOURCE_DATA_NOT_FOUND)) return FALSE;
  const auto object = Find<Module>(module);
  if (!object) return FALSE;
  if (!object->tree.empty()) {
    return VisitAll(object->tree, [&](ResourceName& type) { return visit(module, ToPointer(type), param); });
  }
  SetLastError(ERROR_RESOURCE_DATA_NOT_FOUND);
  return FALSE;
}

BOOL WINAPI EnumResourceNamesW(HMODULE module, LPCWSTR type, ENUMRESNAMEPROCW visit, LONG_PTR param) {
  if (CallFails("EnumResourceNamesW", ERROR_RESOURCE_TYPE_NOT_FOUND)) return FALSE;
  const auto object = Find<Module>(module);
  ResourceNames* names = object ? FindType(*object, type) : nullptr;
  return names &&
         VisitAll(*names, [&](ResourceName& name) { return visit(module, type, ToPointer(name), param); });
}

BOOL WINAPI EnumResourceLanguagesW(HMODULE module, LPCWSTR type, LPCWSTR name, ENUMRESLANGPROCW visit,
                                   LONG_PTR param) {
  if (CallFails("EnumResourceLanguagesW", ERROR_RESOURCE_NAME_NOT_FOUND)) return FALSE;
  const auto object = Find<Module>(module);
  ResourceLanguages* languages = object ? FindLanguages(*object, type, name) : nullptr;
  return languages &&
         VisitAll(*languages, [&](WORD language) { return visit(module, type, name, language, param); });
}

// ---- Updates -------------------------------------------------------------------------------------------

HANDLE WINAPI BeginUpdateResourceW(LPCWSTR file, BOOL deleteExisting) {
  if (CallFails("BeginUpdateResourceW", ERROR_ACCESS_DENIED)) return nullptr;
  const HostPath host = ResolvePath(file);
  if (host.error != 0) return Failed(host.error);
  if (!host.exists) return Failed(ERROR_FILE_NOT_FOUND);
  if (fs::is_directory(host.path)) return Failed(ERROR_ACCESS_DENIED);
  DWORD error = 0;
  const auto use = UseFile(host.path, GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_DELETE, &error);
  if (!use) return Failed(error);
  const auto image = ReadImage(host.path);
  auto tree = image ? ReadResources(*image) : std::nullopt;
  if (!tree) return Failed(ERROR_BAD_EXE_FORMAT);
  return AddHandle(std::make_shared<Update>(host.path, deleteExisting ? ResourceTree() : *std::move(tree)));
}

BOOL WINAPI UpdateResourceW(HANDLE update, LPCWSTR type, LPCWSTR name, WORD language, LPVOID data,
                            DWORD size) {
  if (CallFails("UpdateResourceW", ERROR_NOT_ENOUGH_MEMORY)) return FALSE;
  const auto object = Find<Update>(update);
  if (!object) return FALSE;
  const ResourceName typeKey = ToName(type), nameKey = ToName(name);
  if (!IsStorable(typeKey) || !IsStorable(nameKey))
    Unsupported("UpdateResourceW", "a name in digits or so long");
  bool valid = (data != nullptr) == (size != 0);
  if (valid && data) {
    const auto* first = static_cast<const std::byte*>(data);
    object->tree[typeKey][nameKey][language] = {.data = Bytes(first, first + size)};
  } else if (valid) {
    auto& names = object->tree[typeKey];
    auto& languages = names[nameKey];
    valid = languages.erase(language) != 0;
    if (languages.empty()) names.erase(nameKey);
    if (names.empty()) object->tree.erase(typeKey);
  }
  if (!valid) SetLastError(ERROR_INVALID_PARAMETER);
  return valid;
}

BOOL WINAPI EndUpdateResourceW(HANDLE update, BOOL discard) {
  const bool fails = CallFails("EndUpdateResourceW", ERROR_OPEN_FAILED);
  const auto object = Close<Update>("EndUpdateResourceW", update);
  if (!object || fails) return FALSE;
  const DWORD error = discard ? 0 : Commit(*object);
  if (error != 0) SetLastError(error);
  return error == 0;
}
