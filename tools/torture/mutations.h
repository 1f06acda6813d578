// Every single-byte change and every truncation of a real reply of each kind, through the module's own
// exchange with the gate.
#pragma once

#include <filesystem>

namespace torture {

// The replies are those for the catalogue in `catalogue`; `guest` becomes drive C of the guest. Prints the
// figures; false after a reply that was not read as it must be, which is told on standard error.
bool Mutations(const std::filesystem::path& catalogue, const std::filesystem::path& guest);

}  // namespace torture
