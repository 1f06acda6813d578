// The numbered resources of a guest's executable, each exactly as it is stored.
#pragma once

#include <windows.h>

#include <array>
#include <map>
#include <string>

namespace host {

using ResourceId = std::array<WORD, 3>;               // type, name, language
using Resources = std::map<ResourceId, std::string>;  // their bytes

// All of them; none when the platform cannot load the file. It is loaded as data, so none of its code runs.
Resources ReadResources(const std::string& path);

}  // namespace host
