// What the straight line needs of an application, made before it runs: texts, requests and resources. Of a
// list of applications that the host shares, one plan each.
#pragma once

#include "host/catalogue.h"
#include "registry/registry.h"

namespace bench {

constexpr std::size_t recordsBuffer = 32768,
                      iconsBuffer = 277784;  // bytes, of the requests and their replies

// A request with its code, the text that it asks about, and the room that its buffer leaves for the reply.
host::Bytes Request(std::uint32_t code, const std::string& argument, std::size_t bufferSize);

// One application's names, requests and resources; the keys are those of registry_names.h.
struct Plan {
  WideString app, exe, launcher, link;
  WideString appKey, appCommand, supportedTypes, supportedProtocols, progIdKey, progIdCommand;
  WideString macApps, macAppsKey, capabilities, urlAssociations;
  WideString openCommand, urlCommand, progId;
  host::Bytes iconsRequest, detailsRequest, bundleId, name, version, group;
  std::vector<host::Bytes> images;
  std::vector<std::string> detailed;       // the texts of the reply
  std::vector<WideString> offers, dotted;  // by document type
  struct Claim {
    WideString dotted, progId, key, command, progIds;
  };
  std::vector<Claim> claims;
  struct Scheme {
    WideString name, key, description;
  };
  std::vector<Scheme> schemes;
};

// The folders of launchers and shortcuts are made on the way. Raises what the module's own builders raise.
std::vector<Plan> PlansFor(const std::vector<host::Application>& applications);

}  // namespace bench
