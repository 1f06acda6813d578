// What both builds have in common.
#include "host/system.h"

#include <iostream>
#include <stdexcept>

namespace host {

SavedAtEnd::~SavedAtEnd() {
  try {
    SaveGuest();
  } catch (const std::exception& failure) {
    std::cerr << "velomira-host: " << failure.what() << std::endl;
  }
}

}  // namespace host
