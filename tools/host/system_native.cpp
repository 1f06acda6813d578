// The native build: the module is a shared object, drive C a folder, and the registry a text file in it.
#include <dlfcn.h>
#include <platform/control.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <iterator>
#include <stdexcept>

#include "host/system.h"

namespace host {
namespace {

class SharedObject : public Module {
 public:
  explicit SharedObject(const std::filesystem::path& library) : handle_(dlopen(library.c_str(), RTLD_NOW)) {
    if (!handle_) throw std::runtime_error(std::string("the module cannot be loaded: ") + dlerror());
  }
  ~SharedObject() override { dlclose(handle_); }
  SharedObject(const SharedObject&) = delete;
  SharedObject& operator=(const SharedObject&) = delete;

  void Resolve() {
    start_ = Export<std::int32_t()>("StartTool");
    stop_ = Export<std::int32_t()>("StopTool");
    notify_ = Export<std::int32_t(std::uint32_t)>("NotifyTool");
  }
  std::int32_t Start() override { return start_(); }
  std::int32_t Stop() override { return stop_(); }
  std::int32_t Notify(std::uint32_t code) override { return notify_(code); }

 private:
  template <class Function>
  Function* Export(const char* name) {
    void* address = dlsym(handle_, name);
    if (!address) throw std::runtime_error(std::string("the module does not export ") + name);
    return reinterpret_cast<Function*>(address);
  }

  void* handle_;
  std::int32_t (*start_)() = nullptr;
  std::int32_t (*stop_)() = nullptr;
  std::int32_t (*notify_)(std::uint32_t) = nullptr;
};

std::filesystem::path RegistryFile() {
  return platform::GuestRoot() / "registry.txt";
}

}  // namespace

std::unique_ptr<Module> LoadModule(const std::filesystem::path& library) {
  auto module = std::make_unique<SharedObject>(library);
  module->Resolve();
  return module;
}

std::filesystem::path DefaultModule() {
  return ToolFolder() / "libvelomira.so";
}

bool OpenConsole() {
  return isatty(STDIN_FILENO) != 0;
}

void OpenGuest(const std::filesystem::path& folder) {
  if (!folder.empty()) {
    platform::SetGuestRoot(folder);
  } else if (!std::getenv("PLATFORM_GUEST_ROOT")) {
    throw std::runtime_error("name the folder that is to be the guest's drive C: --guest DIR");
  }
  std::ifstream saved(RegistryFile(), std::ios::binary);
  if (saved) platform::LoadRegistry({std::istreambuf_iterator<char>(saved), {}});
}

std::filesystem::path SaveGuest() {
  std::ofstream out(RegistryFile(), std::ios::binary | std::ios::trunc);
  out << platform::SaveRegistry() << std::flush;
  if (!out) throw std::runtime_error(RegistryFile().string() + ": cannot be written");
  return RegistryFile();
}

std::filesystem::path DriveC() {
  return platform::GuestRoot();
}

std::filesystem::path ToolFolder() {
  return std::filesystem::read_symlink("/proc/self/exe").parent_path();
}

}  // namespace host
