// Progress on a terminal while the guest works on a command: one line, written over for each application when
// the guest first asks about it. An application is known to have failed when its icons are asked for but
// never its details.
#pragma once

#include <memory>
#include <set>
#include <string>

#include "host/catalogue.h"
#include "host/replies.h"

namespace host {

class Narrator {
 public:
  explicit Narrator(Catalogue catalogue);
  void Hear(const Question& question);
  void SayFailed() const;  // the applications that got no launcher; call when the command is over

 private:
  Catalogue catalogue_;
  bool terminal_;
  std::set<std::string> built_, described_;  // bundleIds whose icons, whose details were asked for
};

}  // namespace host
