// The withdrawal of all applications from the current user's hive.
#pragma once

// Finds the module's entries by the marks that registration leaves on them and removes them, in four sweeps
// over the user's classes. Touches no file, but creates the launcher folder when it is missing. A hive or a
// swept key that cannot be opened ends it with xdt::exc_tag; a failure with one entry does not.
void WithdrawHostApplications();
