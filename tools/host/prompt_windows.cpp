// The prompt of the Windows build: the console itself edits lines and recalls them.
#include <iostream>

#include "host/prompt.h"

namespace host {

struct Prompt::Editor {};

Prompt::Prompt(Completer) {}
Prompt::~Prompt() = default;

std::optional<std::string> Prompt::Read() {
  std::cout << "> " << std::flush;
  std::string line;
  return std::getline(std::cin, line) ? std::optional(line) : std::nullopt;
}

}  // namespace host
