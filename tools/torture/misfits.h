// One application among a hundred whose host lies about it, in every way that there is: what belongs to the
// others must be, to the byte, what it is without that one.
#pragma once

#include <filesystem>

namespace torture {

// Runs the module at `module` once for each way; `guest` is emptied for each run and becomes drive C. Prints
// the figures; false after a difference, which is told on standard error.
bool Misfits(const std::filesystem::path& module, const std::filesystem::path& guest);

}  // namespace torture
