// Shell link files: what a link holds, and its bytes in the published binary format.
#pragma once

#include <propsys.h>

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace platform {

struct Property {
  PROPERTYKEY key;
  PROPVARIANT value;  // VT_UI4 or VT_BOOL
};

struct Link {
  std::u16string target;       // a full path, or empty
  std::u16string description;  // left out of the file when empty
  std::vector<Property> properties;
};

std::string LinkBytes(const Link& link);

// The link in `bytes`, or nothing when they are malformed or use a part of the format that LinkBytes does not
// write.
std::optional<Link> ParseLink(std::string_view bytes);

}  // namespace platform
