# Windows on Arm: Debian has no MinGW-w64 for it, so the compiler, its C++ library and the import libraries are Zig's, which
# `./run` installs where the environment variable VELOMIRA_ZIG says.
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(VELOMIRA_ZIG "$ENV{VELOMIRA_ZIG}" CACHE PATH "Folder of the Zig distribution")
if(NOT EXISTS ${VELOMIRA_ZIG}/zig)
  message(FATAL_ERROR "VELOMIRA_ZIG does not name a folder with Zig: `./run package` installs one")
endif()
set(CMAKE_TRY_COMPILE_PLATFORM_VARIABLES VELOMIRA_ZIG)
set(CMAKE_TRY_COMPILE_TARGET_TYPE STATIC_LIBRARY)  # the first program to be linked waits until Zig has built its libraries
set(CMAKE_C_COMPILER ${CMAKE_CURRENT_LIST_DIR}/zig.sh ${VELOMIRA_ZIG} cc)
set(CMAKE_CXX_COMPILER ${CMAKE_CURRENT_LIST_DIR}/zig.sh ${VELOMIRA_ZIG} c++)
set(CMAKE_AR /usr/bin/llvm-ar)
set(CMAKE_RANLIB /usr/bin/llvm-ranlib)
set(CMAKE_STRIP /usr/bin/llvm-strip)
set(CMAKE_DLLTOOL /usr/bin/llvm-dlltool -m arm64)
set(CMAKE_C_FLAGS_INIT -gcodeview)
set(CMAKE_CXX_FLAGS_INIT -gcodeview)
set(CMAKE_RC_COMPILER x86_64-w64-mingw32-windres)
