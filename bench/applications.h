// The applications that everything here is measured with, told the same way on both platforms.
#pragma once

#include "host/catalogue.h"

namespace bench {

// What stands before a guest's applications in its registry: classes of other programs, a tenth of them
// extensions with an offer of their own.
void AddForeignClasses(std::size_t count);

// Application number `number`, with five types of its own (it is to be the default of one), two schemes and
// icons of 16, 32 and 48 pixels. Another `generation` has another name, the rest is the same.
host::Application MakeApplication(std::size_t number, std::size_t generation = 0);

// Numbers 0 to count - 1. With `changed`, every tenth is of the next generation.
std::vector<host::Application> MakeApplications(std::size_t count, bool changed = false);

}  // namespace bench
