// The exception of all work: a source point and a short message. Raise it with XDT_RAISE; catch it as
// std::exception by reference. A copy starts without the text that what() caches.
#pragma once

#include <exception>
#include <string>

#include "xdt/exception/code_point.h"

namespace xdt {

class exc_tag : public std::exception, public code_point {
 public:
  // `message` may be null (an empty message). Raises std::bad_alloc when the texts cannot be kept.
  exc_tag(const char* file_name, std::int32_t line, const char* message, std::int32_t depth);
  exc_tag(const exc_tag& other);
  exc_tag& operator=(const exc_tag& other);
  ~exc_tag() override = default;

  // "file:line: message". The text belongs to this object and is good until the next call. When there is no
  // memory to form it, the message alone is returned.
  const char* what() const noexcept override;

 private:
  std::string message_;
  mutable std::string formatted_;
};

}  // namespace xdt

// Raises exc_tag with the place of the call; file names keep their last three components.
#define XDT_RAISE(message) throw ::xdt::exc_tag(__FILE__, __LINE__, (message), 3)
