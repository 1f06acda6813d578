// The three questions to the host: which applications are shared, what one of them handles, and what its
// icons look like. Each is one synchronous exchange; the device is open for its duration only. All three
// raise xdt::exc_tag; what was appended before a failure stays in the caller's containers.
#pragma once

#include "common/host_application.h"

// Appends the applications that match `pattern` ("*" for all) to `apps`.
void GetMacAppList(WideView pattern, MacAppInfoList& apps);

// Fills `details`, an empty record, for `app.bundleId`.
void GetMacAppDetails(const MacAppInfo& app, MacAppDetails& details);

// Fetches the icons of `app.bundleId` and writes them as icon group 448 into the open resource update
// `update`.
void WriteMacAppIcons(HANDLE update, const MacAppInfo& app);
