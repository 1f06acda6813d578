// The Windows build: the guest is the machine (under Wine, the prefix), whose registry and drive C persist.
#include <windows.h>

#include <io.h>

#include <atomic>
#include <bit>
#include <stdexcept>

#include "host/system.h"
#include "host/text.h"

namespace host {
namespace {

class Library : public Module {
 public:
  explicit Library(const std::filesystem::path& library) : handle_(LoadLibraryW(library.c_str())) {
    if (!handle_) {
      throw std::runtime_error("the module cannot be loaded: " + PathText(library) + ": error " +
                               std::to_string(GetLastError()));
    }
  }
  ~Library() override { FreeLibrary(handle_); }
  Library(const Library&) = delete;
  Library& operator=(const Library&) = delete;

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
    const FARPROC address = GetProcAddress(handle_, name);
    if (!address) throw std::runtime_error(std::string("the module does not export ") + name);
    return std::bit_cast<Function*>(address);
  }

  HMODULE handle_;
  std::int32_t (*start_)() = nullptr;
  std::int32_t (*stop_)() = nullptr;
  std::int32_t (*notify_)(std::uint32_t) = nullptr;
};

}  // namespace

std::unique_ptr<Module> LoadModule(const std::filesystem::path& library) {
  auto module = std::make_unique<Library>(library);
  module->Resolve();
  return module;
}

std::filesystem::path DefaultModule() {
  return ToolFolder() / "velomira.dll";
}

bool OpenConsole() {
  SetConsoleOutputCP(CP_UTF8);
  SetConsoleCP(CP_UTF8);
  return _isatty(_fileno(stdin)) != 0;
}

bool OutputIsTerminal() {
  return _isatty(_fileno(stdout)) != 0;
}

bool Interrupted() {
  static std::atomic<bool> interrupted = false;
  static const BOOL installed = SetConsoleCtrlHandler(
      [](DWORD) WINAPI -> BOOL {
        interrupted = true;
        return TRUE;
      },
      TRUE);
  return installed && interrupted;
}

void OpenGuest(const std::filesystem::path& folder, GuestUse) {
  if (!folder.empty()) throw std::runtime_error("--guest: on Windows the guest is this machine's drive C");
}

std::filesystem::path SaveGuest() {
  return {};
}

std::filesystem::path GuestCatalogue() {
  return {};
}

std::filesystem::path DriveC() {
  return "C:\\";
}

std::filesystem::path ToolFolder() {
  std::wstring path(32768, L'\0');
  path.resize(GetModuleFileNameW(nullptr, path.data(), static_cast<DWORD>(path.size())));
  return std::filesystem::path(path).parent_path();
}

}  // namespace host
