// What the guest holds, for other programs. Text is UTF-8 unless it is said otherwise.
#pragma once

#include <string>

namespace host {

// The module's parts of the current user's registry as a file that a registry editor imports: UTF-16,
// little-endian, with a byte order mark.
std::string RegistryAsReg();
// Files, launchers and registry as one JSON object.
std::string GuestAsJson();

}  // namespace host
