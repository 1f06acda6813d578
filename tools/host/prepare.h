// What the guest's tools installer would have left: the template stub, the place where it lies, the
// user's folders, and the current user's keys that the module expects but never creates.
#pragma once

namespace host {

// Can be repeated; what is there already stays. Throws std::runtime_error.
void PrepareGuest();

}  // namespace host
