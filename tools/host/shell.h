// The prompt from which an engineer plays the host by hand. Commands come from a terminal or from a script; a
// script's commands are echoed, and one that fails makes the exit status 1.
#pragma once

#include <filesystem>
#include <string>

#include "host/catalogue.h"
#include "host/prompt.h"
#include "host/story.h"

namespace host {

struct ShellOptions {
  std::filesystem::path folder;  // the catalogue's, for icons that `add` names
  std::string script;            // a file with commands; empty for standard input
  bool interactive = false;      // a person types
  Conversation::Listener listen{};
};

// Returns the exit status.
int RunShell(const Catalogue& catalogue, const SessionOptions& session, const ShellOptions& options);

// What a command line that is typed may go on with.
Completion CompleteLine(const Catalogue& catalogue, const std::string& line);

}  // namespace host
