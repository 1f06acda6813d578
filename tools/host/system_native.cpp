// The native build: the module is a shared object, drive C a folder, and the registry a text file in it.
#include <dlfcn.h>
#include <fcntl.h>
#include <platform/control.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <fstream>
#include <iterator>

#include "host/system.h"

namespace host {
namespace {

[[noreturn]] void Refuse(const std::filesystem::path& path, const std::string& why) {
  throw std::runtime_error(path.string() + ": " + why);
}

std::filesystem::path RegistryFile() {
  return platform::GuestRoot() / "registry.txt";
}

// The file that makes a folder a guest. Who uses the guest holds a lock on it, until it uses another: a
// shared one to look, the only one to play.
void TakeMark(const std::filesystem::path& folder, GuestUse use) {
  static int descriptor = -1;
  if (descriptor >= 0) close(descriptor);
  const bool play = use == GuestUse::Play;
  const std::filesystem::path file = folder / "velomira-guest";
  if (!exists(file)) {
    if (!play) Refuse(folder, "is no guest: there is no file velomira-guest in it");
    if (exists(folder) && !is_empty(folder)) Refuse(folder, "is no guest, and there are other things in it");
    create_directories(folder);
  }
  descriptor = open(file.c_str(), (play ? O_RDWR | O_CREAT : O_RDONLY) | O_CLOEXEC, 0666);
  if (descriptor < 0) Refuse(file, "cannot be opened");
  struct flock lock {};
  lock.l_type = play ? F_WRLCK : F_RDLCK;
  if (fcntl(descriptor, F_SETLK, &lock) == 0) return;
  fcntl(descriptor, F_GETLK, &lock);
  Refuse(folder, "is in use by another velomira-host, process " + std::to_string(lock.l_pid));
}

volatile std::sig_atomic_t interrupts = 0;

}  // namespace

Module::Module(const std::filesystem::path& file) {
  void* library = dlopen(file.c_str(), RTLD_NOW);
  if (!library) throw std::runtime_error(std::string("the module cannot be loaded: ") + dlerror());
  library_ = {library, dlclose};
  Resolve([&](const char* name) { return dlsym(library, name); });
}

std::filesystem::path DefaultModule() {
  return ToolFolder() / "libvelomira.so";
}

bool OpenConsole() {
  std::signal(SIGPIPE, SIG_IGN);  // a reader that has gone is output that cannot be written
  return isatty(STDIN_FILENO) != 0;
}

bool Interrupted() {
  static const bool installed = [] {
    struct sigaction action {};
    action.sa_handler = [](int) { interrupts = 1; };
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) sigaction(signal, &action, nullptr);
    return true;
  }();
  return installed && interrupts != 0;
}

void OpenGuest(const std::filesystem::path& folder, GuestUse use) {
  const char* given = std::getenv("PLATFORM_GUEST_ROOT");
  if (folder.empty() && !given) {
    throw std::runtime_error("name the folder that is to be the guest's drive C: --guest DIR");
  }
  const std::filesystem::path root = std::filesystem::absolute(folder.empty() ? given : folder);
  TakeMark(root, use);
  platform::SetGuestRoot(root);
  platform::ResetRegistry();
  std::ifstream saved(RegistryFile(), std::ios::binary);
  try {
    if (saved) platform::LoadRegistry({std::istreambuf_iterator<char>(saved), {}});
  } catch (const std::invalid_argument& failure) {
    Refuse(RegistryFile(), failure.what());
  }
}

std::filesystem::path SaveGuest() {
  std::filesystem::path file = RegistryFile();
  const std::filesystem::path unfinished = file.string() + ".new";
  std::ofstream out(unfinished, std::ios::binary | std::ios::trunc);
  out << platform::SaveRegistry() << std::flush;
  if (!out) Refuse(unfinished, "cannot be written");
  out.close();
  rename(unfinished, file);
  return file;
}

std::filesystem::path GuestCatalogue() {
  return platform::GuestRoot() / "catalogue";
}

std::filesystem::path DriveC() {
  return platform::GuestRoot();
}

std::filesystem::path ToolFolder() {
  return std::filesystem::read_symlink("/proc/self/exe").parent_path();
}

}  // namespace host
