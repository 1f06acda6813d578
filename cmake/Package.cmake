# The package of a Windows build: the module, its symbols, what a reader needs, and the licences of the code that
# the compiler links into it. Their texts are those of this machine's Debian packages, and are looked for when a
# package is made; a build needs none of them.
if(CMAKE_SIZEOF_VOID_P EQUAL 8)
  set(package_architecture x64)
  set(debian_architecture x86-64)
else()
  set(package_architecture x86)
  set(debian_architecture i686)
endif()

function(package_license source name)
  install(CODE "if(NOT EXISTS ${source})
    message(FATAL_ERROR \"The licence text ${source} is missing: install the package that the name says.\")
  endif()")
  install(FILES ${source} DESTINATION licenses RENAME ${name})
endfunction()

# Only what is installed has to be built.
set(CMAKE_SKIP_INSTALL_ALL_DEPENDENCY ON)
install(FILES $<TARGET_FILE:velomira> $<TARGET_FILE_DIR:velomira>/velomira.pdb README.md DESTINATION .)
install(FILES docs/guest.md DESTINATION docs)
package_license(/usr/share/doc/g++-mingw-w64-${debian_architecture}-posix/copyright gcc-runtime.txt)
package_license(/usr/share/doc/mingw-w64-${debian_architecture}-dev/copyright mingw-w64-and-winpthreads.txt)
package_license(/usr/share/common-licenses/GPL-3 gpl-3.txt)

set(CPACK_GENERATOR ZIP)
set(CPACK_PACKAGE_NAME velomira)
set(CPACK_PACKAGE_FILE_NAME velomira-${PROJECT_VERSION}-windows-${package_architecture})
set(CPACK_VERBATIM_VARIABLES ON)
include(CPack)
