// The prompt from which an engineer plays the host by hand. Commands come from a terminal or, as a script,
// from standard input; a script's commands are echoed, and one that fails makes the exit status 1.
#pragma once

#include <filesystem>

#include "host/catalogue.h"
#include "host/story.h"

namespace host {

// `folder` is the catalogue's, for icons that `add` names. Returns the exit status.
int RunShell(const Catalogue& catalogue, const std::filesystem::path& folder, const SessionOptions& options,
             bool interactive, const Conversation::Listener& listen);

}  // namespace host
