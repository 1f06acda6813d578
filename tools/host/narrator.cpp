// One line per application. The text is written on the module's thread; the caller's waits meanwhile.
#include "host/narrator.h"

#include <algorithm>
#include <iostream>

namespace host {

void Narrator::Hear(const Question& question) {
  if (!question.valid || (question.code != 103 && question.code != 104)) return;
  const auto& apps = catalogue_.applications();
  const auto app = std::find_if(apps.begin(), apps.end(),
                                [&](const Application& each) { return each.bundleId == question.argument; });
  const bool first = !built_.contains(question.argument) && !described_.contains(question.argument);
  (question.code == 103 ? built_ : described_).insert(question.argument);
  if (!first || app == apps.end()) return;
  std::cout << "    " << app - apps.begin() + 1 << "/" << apps.size() << "  " << app->name
            << (question.code == 103 ? ": a launcher is built\n" : "\n") << std::flush;
}

void Narrator::SayFailed() const {
  for (const Application& app : catalogue_.applications()) {
    if (built_.contains(app.bundleId) && !described_.contains(app.bundleId)) {
      std::cout << "    " << app.name << " could not be registered and was removed again\n";
    }
  }
}

}  // namespace host
