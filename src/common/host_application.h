// One shared application as the host describes it. Texts are UTF-16, used as they arrive.
#pragma once

#include <cstddef>
#include <span>
#include <vector>

#include "common/text.h"

struct MacAppInfo {
  WideString bundleId;  // the host's identifier, the argument of the details and icons requests
  WideString name;      // the display name, after which everything in the guest is named
};

// In the host's order; duplicates are kept.
using MacAppInfoList = std::vector<MacAppInfo>;

struct MacAppDetails {
  std::vector<WideString> documentTypes;  // extensions without the dot that the application opens
  std::vector<WideString> defaultTypes;   // extensions to be claimed where nothing else opens them
  bool anyType = false;                   // offered for every type
  std::vector<WideString> urlSchemes;     // scheme names without the colon
};

// One icon bitmap of the host's reply, a whole BMP file image; it points into the reply's buffer.
using HostBitmap = std::span<const std::byte>;
using HostBitmapList = std::vector<HostBitmap>;
