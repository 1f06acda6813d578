// velomira-host: plays the program that loads the module and the host behind the tool gate.
#include <cstdlib>
#include <iostream>

#include "host/commands.h"
#include "host/system.h"

namespace {

constexpr int failed = 1, misused = 2;

// Text that did not arrive is a failure, too.
int Status(int status) {
  return std::cout.flush() ? status : throw std::runtime_error("the output cannot be written");
}

int Run(int argc, char** argv) {
  CLI::App tool{"Plays the host: shares a catalogue of applications with the guest module."};
  tool.name("velomira-host");
  tool.set_version_flag("--version", "velomira-host " VELOMIRA_VERSION);
  tool.require_subcommand(1);
  std::function<int()> action;
  host::CommandLine commands(tool, action);
  commands.AddPlayCommands();
  commands.AddGuestCommands();
  try {
    tool.parse(argc, argv);
    host::OpenConsole();
    return Status(action());
  } catch (const CLI::Success& wish) {  // for help or the version
    return Status(tool.exit(wish));
  } catch (const CLI::Error& misuse) {
    std::cerr << "velomira-host: " << host::Misuse(tool, misuse) << "; see --help\n";
    return misused;
  }
}

}  // namespace

int main(int argc, char** argv) {
  try {
    return Run(argc, argv);
  } catch (const std::exception& failure) {
    std::cout << std::flush;
    std::cerr << "velomira-host: " << failure.what() << std::endl;
    std::_Exit(failed);  // the module's thread may still run and never answer
  }
}
