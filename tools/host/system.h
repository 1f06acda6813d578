// What the host tool must ask of the machine it runs on, and what differs between its two builds: natively
// the guest is a folder of the machine and a registry in memory, on Windows it is the machine itself.
#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <stdexcept>
#include <string>
#include <type_traits>

namespace host {

// The module, loaded as a library, by its three exports. Destroying it unloads the library.
class Module {
 public:
  // Throws std::runtime_error when the library or one of the exports is missing.
  explicit Module(const std::filesystem::path& file);
  std::int32_t Start() { return start_(); }
  std::int32_t Stop() { return stop_(); }
  std::int32_t Notify(std::uint32_t code) { return notify_(code); }

 private:
  template <class Find>
  void Resolve(const Find& find) {
    const auto resolve = [&](const char* name, auto& function) {
      function = reinterpret_cast<std::remove_reference_t<decltype(function)>>(find(name));
      if (!function) throw std::runtime_error(std::string("the module does not export ") + name);
    };
    resolve("StartTool", start_);
    resolve("StopTool", stop_);
    resolve("NotifyTool", notify_);
  }

  std::shared_ptr<void> library_;
  std::int32_t (*start_)() = nullptr;
  std::int32_t (*stop_)() = nullptr;
  std::int32_t (*notify_)(std::uint32_t) = nullptr;
};

std::filesystem::path DefaultModule();  // the module of this build, beside the tool

// Prepares the machine's console for UTF-8, and the process for a reader of its output that goes away. True
// when a person types the input.
bool OpenConsole();

// From the first call on, an interrupt (Ctrl-C, or a request to end) does not end the process; it makes this
// true, and a read from the terminal or from standard input ends.
bool Interrupted();

// Makes `folder` drive C of the guest, with the registry that an earlier run saved there; an empty path means
// the guest that the machine has. To play, the folder may be new or empty, and is the caller's alone until
// the process ends or opens another; to look, it must be a guest, and nothing in it changes. Throws
// std::runtime_error when the folder is something else, when another process holds it, when the saved
// registry cannot be read, and when this build has no such guests.
enum class GuestUse { Play, Look };
void OpenGuest(const std::filesystem::path& folder, GuestUse use);
// Saves what would not outlive the process (the registry, natively) as text, which takes the place of the one
// that was saved before only when it is whole; the file's path, or an empty one.
std::filesystem::path SaveGuest();
// Where a guest's folder keeps the catalogue that it was played with last; empty where a guest has no folder.
std::filesystem::path GuestCatalogue();
std::filesystem::path DriveC();

// The folder of the tool itself.
std::filesystem::path ToolFolder();

}  // namespace host
