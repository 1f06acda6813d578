// Where a failure was raised: source file name, trimmed to its last components, and line. The trimming keeps
// texts the same whatever folder the build ran in.
#pragma once

#include <cstdint>
#include <string>

namespace xdt {

class code_point {
 public:
  // `file_name` may be null (an empty name is recorded). `depth` is the number of path separators ('/' or
  // '\') that the recorded tail begins with and holds; 0, or fewer separators than that, records the whole
  // name. A `line` below 1 is recorded as 0.
  code_point(const char* file_name, std::int32_t line, std::int32_t depth);
  code_point(const code_point&) = default;
  code_point& operator=(const code_point&) = default;
  virtual ~code_point() = default;

  const std::string& file_name() const { return file_name_; }
  std::int32_t line() const { return line_; }

 private:
  std::string file_name_;
  std::int32_t line_;
};

}  // namespace xdt
