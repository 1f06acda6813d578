// Registration of launchers with the shell. {app} is an application's full name.
#pragma once

#include "common/host_application.h"
#include "registry/registry.h"

// Brings one application into the guest: its launcher, then everything that ties it to the types and schemes
// that the host names. True when the launcher was built or an extension newly claimed, so that the shell is
// to be told. Raises at the first failure; what was written before it stays.
bool RegisterHostApplication(const WideString& launcherFolder, const MacAppInfo& info, bool skipIfCurrent);

// Writes the launcher's application key with its open command; other values of the key stay. Raises
// "RegOpenCurrentUser() failed" or "can't register application".
void RegisterApplication(const WideString& app, const WideString& launcherPath);

// Creates the key `base` + `name` (`base` ends with its separator) with an empty default value, and with
// `command` (null: none) as its open command. False on any failure. Raises nothing derived from
// std::exception.
bool RegisterClassKey(HKEY hive, const WideString& base, const WideString& name, const WideString* command);
