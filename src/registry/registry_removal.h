// Removal of one application's own registry entries. {app} is its full name.
#pragma once

#include "registry/registry.h"

// Removes the application's URL ProgID, capabilities, entry among the registered applications and application
// key from `hive`. True when the application key was there and is gone. Raises "RegOpenKeyExW() failed" when
// the registered applications' key cannot be opened; the application key then stays.
bool RemoveApplicationKeys(const WideString& app, HKEY hive);

// The same in the current user's hive. Raises "RegOpenCurrentUser() failed" too, and "can't unregister
// application" when the application key was not deleted.
void UnregisterApplication(const WideString& app);
