// The Windows build: the guest is the machine (under Wine, the prefix), whose registry and drive C persist.
#include <windows.h>

#include <io.h>

#include <atomic>
#include <iostream>

#include "guest/text.h"
#include "host/prompt.h"
#include "host/system.h"

namespace host {

// The console itself edits lines and recalls them.
struct Prompt::Editor {};
Prompt::Prompt(Completer) {}
Prompt::~Prompt() = default;

std::optional<std::string> Prompt::Read() {
  std::cout << "> " << std::flush;
  std::string line;
  return std::getline(std::cin, line) ? std::optional(line) : std::nullopt;
}
Module::Module(const std::filesystem::path& file) {
  const HMODULE library = LoadLibraryW(file.c_str());
  if (!library) {
    throw std::runtime_error("the module cannot be loaded: " + PathText(file) + ": error " +
                             std::to_string(GetLastError()));
  }
  library_ = {library, [](void* loaded) { FreeLibrary(static_cast<HMODULE>(loaded)); }};
  Resolve([&](const char* name) { return GetProcAddress(library, name); });
}

std::filesystem::path DefaultModule() {
  return ToolFolder() / "velomira.dll";
}

bool OpenConsole() {
  SetConsoleOutputCP(CP_UTF8);
  SetConsoleCP(CP_UTF8);
  return _isatty(_fileno(stdin)) != 0;
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
