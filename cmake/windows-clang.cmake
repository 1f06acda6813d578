# Clang and LLD over the system's MinGW-w64: its headers, C++ library and import libraries. Unlike the GNU linker, LLD
# writes the symbol files (PDB) that Windows debuggers read. A toolchain file sets `triple` and includes this one.
set(CMAKE_SYSTEM_NAME Windows)
string(REGEX MATCH "^[^-]+" CMAKE_SYSTEM_PROCESSOR ${triple})
set(CMAKE_C_COMPILER clang)
set(CMAKE_CXX_COMPILER clang++)
set(CMAKE_C_COMPILER_TARGET ${triple})
set(CMAKE_CXX_COMPILER_TARGET ${triple})
set(CMAKE_RC_COMPILER ${triple}-windres)
set(CMAKE_FIND_ROOT_PATH /usr/${triple})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE BOTH)

# Where the C++ library with POSIX threads lies; Clang does not look there by itself. GCC tells that
# library two facts of the target, and its thread-local variables are the emulated ones.
execute_process(COMMAND ${triple}-g++-posix -print-libgcc-file-name OUTPUT_VARIABLE libgcc OUTPUT_STRIP_TRAILING_WHITESPACE)
get_filename_component(gcc ${libgcc} DIRECTORY)
set(CMAKE_C_FLAGS_INIT -gcodeview)
set(CMAKE_CXX_FLAGS_INIT
  "-gcodeview -femulated-tls -D__GXX_MERGED_TYPEINFO_NAMES=0 -D__GXX_TYPEINFO_EQUALITY_INLINE=0 -nostdinc++ -isystem ${gcc}/include/c++ -isystem ${gcc}/include/c++/${triple} -isystem ${gcc}/include/c++/backward")
foreach(kind EXE SHARED MODULE)
  set(CMAKE_${kind}_LINKER_FLAGS_INIT "-fuse-ld=lld -L${gcc} -lwinpthread -Wno-unused-command-line-argument")
endforeach()
