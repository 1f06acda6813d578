// Progress on standard output while the guest works on a command: one line per application, when the guest
// first asks about it. An application is known to have failed when its icons are asked for but never its
// details.
#pragma once

#include <memory>
#include <set>
#include <string>

#include "host/catalogue.h"
#include "host/replies.h"

namespace host {

class Narrator {
 public:
  explicit Narrator(Catalogue catalogue) : catalogue_(std::move(catalogue)) {}
  void Hear(const Question& question);
  void SayFailed() const;  // the applications that got no launcher; call when the command is over

 private:
  Catalogue catalogue_;
  std::set<std::string> built_, described_;  // bundleIds whose icons, whose details were asked for
};

}  // namespace host
