# The module as a target: velomira::velomira brings its header and its import library. The DLL itself goes beside the program
# that loads it: $<TARGET_FILE:velomira::velomira>.
if(NOT TARGET velomira::velomira)
  get_filename_component(velomira_folder "${CMAKE_CURRENT_LIST_DIR}/../../.." ABSOLUTE)
  add_library(velomira::velomira SHARED IMPORTED)
  set_target_properties(velomira::velomira PROPERTIES
    IMPORTED_LOCATION "${velomira_folder}/bin/velomira.dll"
    IMPORTED_IMPLIB "${velomira_folder}/lib/velomira.lib"
    INTERFACE_INCLUDE_DIRECTORIES "${velomira_folder}/include")
  unset(velomira_folder)
endif()
