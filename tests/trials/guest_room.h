// A guest arranged by hand, and what every trial asks of one.
#pragma once

#include <windows.h>

#include <filesystem>
#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "trials/crew.h"
#include "trials/rig.h"

namespace trials {

// The registry: keys as in a snapshot, "HKCU\..." or "HKLM\...". Missing parents come as well.
void PutKey(const std::string& key);
void PutData(const std::string& key, const std::string& value, DWORD type, std::string_view bytes);
void PutText(const std::string& key, const std::string& value, const std::string& text);
void DropKey(const std::string& key);  // with everything below it; it may be missing

// A file of drive C, "C:\...", as the machine that plays the guest has it; parents are made.
std::filesystem::path HostFile(const std::string& guestPath);
void PutFile(const std::string& guestPath, const std::string& bytes);

// Everything that the guest holds where the module has no business: all registry keys and files but those of
// a host::Snapshot.
std::map<std::string, std::string> Elsewhere();
std::vector<std::string> Differences(const std::map<std::string, std::string>& before,
                                     const std::map<std::string, std::string>& now);

// One trial: what it throws is its failure, and the next trial can follow.
void Try(Report& report, const std::string& name, const std::function<void()>& trial);
void Add(Tally& sum, const Tally& tally);
// Throws std::runtime_error with the first few of the differences when there are any.
void RequireNone(const std::string& when, const std::vector<std::string>& differences);
// Sends the command and waits until it is over; the module runs and is to go on running.
void CarryOut(Rig& rig, const host::Bytes& command);
// Stops the module; nothing of it may be open then, and it must have kept to the gate's contract.
void StopAndCount(Rig& rig);

}  // namespace trials
