// The command that switches application sharing on and off.
#pragma once

// Mirrors the host's applications into the guest, or takes everything out again. Runs to its end on the
// worker's thread, with COM initialised. Every failure derived from std::exception ends here; what was done
// stays.
void HandleSharingState(bool on);
