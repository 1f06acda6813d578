// The limit of what mirroring can cost: the platform calls that the behaviour asks for, in its order, and
// nothing between them. Every text, request and image is made beforehand; of the host's replies only their
// coming counts.
#pragma once

#include <map>

#include "plan.h"

namespace bench {

class StraightLine {
 public:
  // `gone`: what the guest still has of applications that are not listed any more.
  StraightLine(const std::vector<host::Application>& listed, const std::vector<host::Application>& gone);

  void Pass() const;           // "on"; COM must be initialised on the thread
  void Withdraw() const;       // "off", but for the two folders
  void Ask(bool icons) const;  // only what a pass asks the host, with the icons of new launchers or without

 private:
  void SweepOffers(HKEY classes, WideView extension) const;

  WideString pattern_;             // of the launcher files
  std::vector<std::string> list_;  // the texts of the reply
  std::vector<Plan> listed_, gone_;
  std::map<WideView, const Plan*> launchers_;  // of listed_, by file name: the registry's order
};

// The exchange that asks for the list, and the conversion of the texts that it brings.
void AskForList(const std::vector<std::string>& texts);

}  // namespace bench
