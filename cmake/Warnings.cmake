# Warnings for the project's own targets: `target_link_libraries(<target> PRIVATE warnings)`.
add_library(warnings INTERFACE)
target_compile_options(warnings INTERFACE
  -Wall -Wextra -Wpedantic -Wconversion -Wshadow -Wformat=2 -Wundef
  $<$<COMPILE_LANGUAGE:CXX>:-Wnon-virtual-dtor -Woverloaded-virtual -Wold-style-cast -Wsuggest-override>
  # Version 12 sees overlaps in the standard library's own string concatenation.
  $<$<AND:$<CXX_COMPILER_ID:GNU>,$<VERSION_LESS:$<CXX_COMPILER_VERSION>,13>>:-Wno-restrict>
  # Clang counts among the conversions what GCC has an option of its own for.
  $<$<CXX_COMPILER_ID:Clang>:-Wno-sign-conversion>
  $<$<BOOL:${VELOMIRA_WERROR}>:-Werror>)
