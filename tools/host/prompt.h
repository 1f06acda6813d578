// Lines from a person at a terminal, with history, editing and completion where this build has them.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace host {

// The words that may stand where the last one of a line begins, which goes up to the cursor.
struct Completion {
  std::size_t start = 0;
  std::vector<std::string> words;
};
using Completer = std::function<Completion(const std::string& line)>;

class Prompt {
 public:
  explicit Prompt(Completer completer);
  ~Prompt();
  Prompt(const Prompt&) = delete;
  Prompt& operator=(const Prompt&) = delete;
  // The next line; empty when Ctrl-C has ended it, nothing when there is no further one.
  std::optional<std::string> Read();

 private:
  struct Editor;
  std::unique_ptr<Editor> editor_;
};

}  // namespace host
