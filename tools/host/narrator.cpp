// The text is written on the module's thread; the caller's waits meanwhile.
#include "host/narrator.h"

#include <algorithm>
#include <iostream>

#include "host/system.h"

namespace host {

Narrator::Narrator(Catalogue catalogue) : catalogue_(std::move(catalogue)), terminal_(OutputIsTerminal()) {}

void Narrator::Hear(const Question& question) {
  if (!question.valid || (question.code != 103 && question.code != 104)) return;
  const bool first = !built_.contains(question.argument) && !described_.contains(question.argument);
  (question.code == 103 ? built_ : described_).insert(question.argument);
  if (!first || !terminal_) return;
  std::cout << "\r    " << built_.size() + described_.size() << "/" << catalogue_.applications().size()
            << "\r" << std::flush;
}

void Narrator::SayFailed() const {
  for (const Application& app : catalogue_.applications()) {
    if (built_.contains(app.bundleId) && !described_.contains(app.bundleId)) {
      std::cout << "    " << app.name << " could not be registered and was removed again\n";
    }
  }
}

}  // namespace host
