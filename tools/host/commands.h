// The subcommands of velomira-host. Each function adds some to the command line; the one that is named there
// puts what it does into `action`, which returns the exit status: 0, or 1 for differences. A failure is a
// std::runtime_error, misuse that the command line itself does not show a CLI::Error.
#pragma once

#include <CLI/CLI.hpp>
#include <functional>
#include <string>

#include "host/catalogue.h"
#include "host/story.h"

namespace host {

using Action = std::function<int()>;

void AddPlayCommands(CLI::App& tool, Action& action);  // run, shell, replay, trace, check: the host is played
void AddGuestCommands(CLI::App& tool, Action& action);  // verify, export, report, ...: a guest is looked at

// The commands and options that may be named, and what is to be said of a line that cannot be understood.
std::vector<std::string> NamesOf(const CLI::App& app);
std::string Misuse(const CLI::App& app, const CLI::Error& error);

// What several commands take.
struct GuestOptions {
  std::string catalogue, guest;
  void AddCatalogue(CLI::App& command, bool required);
  void AddGuest(CLI::App& command);
};

}  // namespace host
