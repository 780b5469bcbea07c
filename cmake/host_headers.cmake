# Header-only libraries of the machine that cross-builds, each by a link of its own: its header folder as a whole would
# hide the target system's.
set(host_headers ${PROJECT_BINARY_DIR}/host_headers)
file(MAKE_DIRECTORY ${host_headers})
foreach(package CLI11:CLI nlohmann_json:nlohmann)
  string(REPLACE ":" ";" parts ${package})
  list(GET parts 0 name)
  list(GET parts 1 folder)
  if(NOT EXISTS /usr/include/${folder})
    message(FATAL_ERROR "The headers of ${name} are missing: scripts/setup --windows installs them.")
  endif()
  file(CREATE_LINK /usr/include/${folder} ${host_headers}/${folder} SYMBOLIC)
  add_library(${name}::${name} INTERFACE IMPORTED)
  set_target_properties(${name}::${name} PROPERTIES INTERFACE_INCLUDE_DIRECTORIES ${host_headers})
endforeach()
# It would make paths from bytes by the user's region.
target_compile_definitions(CLI11::CLI11 INTERFACE CLI11_HAS_FILESYSTEM=0)
