// The subcommands of velomira-host. Each function adds some to the command line; the one that is named there
// puts what it does into `action`, which returns the exit status: 0, or 1 for differences. A failure is a
// std::runtime_error, misuse that the command line itself does not show a CLI::Error.
#pragma once

#include <CLI/CLI.hpp>
#include <functional>
#include <string>
#include <vector>

#include "host/story.h"

namespace host {

// What the command line gives to the subcommand.
struct Options {
  std::string catalogue, guest, other, module, script, report, trace, recording, application, code;
  std::string reg, json, png;
  double seconds = 30;
  bool off = false, strict = false, asJson = false;
  StoryOptions story{};
};

class CommandLine {
 public:
  CommandLine(CLI::App& tool, std::function<int()>& action) : tool_(tool), action_(action) {}

  void AddPlayCommands();   // run, shell, replay, trace, check: the host is played
  void AddGuestCommands();  // verify, export, report, ...: a guest is looked at

 private:
  CLI::App& Add(const char* name, const char* help, int (*run)(const Options&));
  void AddCatalogue(CLI::App& command, bool required);
  void AddGuest(CLI::App& command);
  void AddModule(CLI::App& command);

  CLI::App& tool_;
  std::function<int()>& action_;
  Options options_;
};

// The commands and options that may be named, and what is to be said of a line that cannot be understood.
std::vector<std::string> NamesOf(const CLI::App& app);
std::string Misuse(const CLI::App& app, const CLI::Error& error);

}  // namespace host
