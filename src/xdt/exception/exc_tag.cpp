// The text of a failure. Forming it allocates, so what() has a way out that does not.
#include "xdt/exception/exc_tag.h"

#include <cstdio>
#include <utility>

namespace xdt {

exc_tag::exc_tag(const char* file_name, std::int32_t line, const char* message, std::int32_t depth)
    : code_point(file_name, line, depth), message_(message != nullptr ? message : "") {}

exc_tag::exc_tag(const exc_tag& other) : std::exception(other), code_point(other), message_(other.message_) {}

exc_tag& exc_tag::operator=(const exc_tag& other) {
  if (this == &other) return *this;
  code_point::operator=(other);
  message_ = other.message_;
  formatted_.clear();
  return *this;
}

const char* exc_tag::what() const noexcept {
  try {
    // The colon, the colon and blank, a signed 32-bit number of at most 11 characters, and the NUL.
    std::string buffer(file_name().size() + message_.size() + 15, '\0');
    const int length = std::snprintf(buffer.data(), buffer.size(), "%s:%d: %s", file_name().c_str(), line(),
                                     message_.c_str());
    buffer.resize(static_cast<std::size_t>(length));
    formatted_ = std::move(buffer);
    return formatted_.c_str();
  } catch (const std::exception&) {
    return message_.c_str();  // out of memory: the text without its source point
  }
}

}  // namespace xdt
