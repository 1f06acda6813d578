// The program's operator new, which can fail at one allocation of the module. Allocations of the native layer
// and of the host behind the gate are not counted: on Windows neither is the module's.
#pragma once

#include <cstddef>

namespace trials {

// From now on the n-th allocation (from 1) that the module's own code asks for fails; 0: none does.
void FailAllocation(std::size_t n);
// Ends that. Returns how many there were; each that failed is one of them.
std::size_t AllocationsSeen();

}  // namespace trials
