// Trimming of source file names. Both separators count, since one build's paths may mix them.
#include "xdt/exception/code_point.h"

#include <cstring>

namespace xdt {
namespace {

const char* trim(const char* file_name, std::int32_t depth) {
  if (file_name == nullptr) return "";
  if (depth == 0) return file_name;
  std::int32_t separators = 0;
  for (const char* at = file_name + std::strlen(file_name); at != file_name;) {
    --at;
    if ((*at == '/' || *at == '\\') && ++separators == depth) return at;
  }
  return file_name;
}

}  // namespace

code_point::code_point(const char* file_name, std::int32_t line, std::int32_t depth)
    : file_name_(trim(file_name, depth)), line_(line >= 1 ? line : 0) {}

}  // namespace xdt
