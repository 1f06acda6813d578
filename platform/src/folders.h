// The folders of a guest that has just been set up.
#pragma once

#include <string>

namespace platform {

inline constexpr char16_t windowsFolder[] = u"C:\\Windows";

// A guest without the Windows folder or the user's profile gets it, the profile with its standard folders;
// what has been deleted inside them since stays deleted.
void FurnishGuest();

}  // namespace platform
