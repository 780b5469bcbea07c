# What a Windows binary has besides its code: its version for the Explorer and installers, a manifest (programs), its
# symbols in a file beside it; and of the library, what Microsoft's linker wants.
enable_language(RC)

# windows_parts(TARGET DESCRIPTION)
function(windows_parts target description)
  set(name ${target})
  get_target_property(type ${target} TYPE)
  set(parts ${PROJECT_BINARY_DIR}/parts/windows)
  if(type STREQUAL EXECUTABLE)
    set(file_name ${target}.exe)
    set(file_type VFT_APP)
    configure_file(${PROJECT_SOURCE_DIR}/platform/windows/program.manifest.in ${parts}/${target}.manifest @ONLY)
    set(manifest "1 24 \"${parts}/${target}.manifest\"")
  else()
    set(file_name ${target}.dll)
    set(file_type VFT_DLL)
    set(manifest "")
  endif()
  string(REPLACE "." "," version_numbers ${PROJECT_VERSION})
  configure_file(${PROJECT_SOURCE_DIR}/platform/windows/version.rc.in ${parts}/${target}.rc @ONLY)
  target_sources(${target} PRIVATE ${parts}/${target}.rc)

  # Debuggers find them by the link that the binary keeps.
  add_custom_command(TARGET ${target} POST_BUILD WORKING_DIRECTORY $<TARGET_FILE_DIR:${target}>
    COMMAND ${CMAKE_OBJCOPY} --only-keep-debug ${file_name} ${file_name}.debug
    COMMAND ${CMAKE_STRIP} --strip-all ${file_name}
    COMMAND ${CMAKE_OBJCOPY} --add-gnu-debuglink=${file_name}.debug ${file_name} VERBATIM)
  if(MEDIA_ADAPTER_INSTALL)
    install(FILES $<TARGET_FILE:${target}>.debug DESTINATION ${CMAKE_INSTALL_BINDIR})
  endif()
endfunction()

# The names of the public header's functions, and an import library in the form of Microsoft's linker.
file(STRINGS ${PROJECT_SOURCE_DIR}/api/media_adapter.h names REGEX "API_[A-Za-z]+\\(")
list(TRANSFORM names REPLACE ".*(API_[A-Za-z]+)\\(.*" "    \\1\n")
list(JOIN names "" names)
set(definition ${PROJECT_BINARY_DIR}/mediaadapter.def)
file(CONFIGURE OUTPUT ${definition} CONTENT "LIBRARY mediaadapter.dll\nEXPORTS\n${names}" @ONLY)
find_program(LLVM_DLLTOOL llvm-dlltool)
if(LLVM_DLLTOOL)
  set(machine $<IF:$<EQUAL:${CMAKE_SIZEOF_VOID_P},4>,i386,i386:x86-64>)
  add_custom_command(OUTPUT ${PROJECT_BINARY_DIR}/mediaadapter.lib
    COMMAND ${LLVM_DLLTOOL} -m ${machine} -d ${definition} -l ${PROJECT_BINARY_DIR}/mediaadapter.lib
    DEPENDS ${definition} COMMENT "Import library for Microsoft's linker" VERBATIM)
  add_custom_target(microsoft_import_library ALL DEPENDS ${PROJECT_BINARY_DIR}/mediaadapter.lib)
else()
  message(NOTICE "mediaadapter.lib is not made: there is no llvm-dlltool.")
endif()
if(MEDIA_ADAPTER_INSTALL)
  install(FILES ${definition} DESTINATION ${CMAKE_INSTALL_LIBDIR})
  if(LLVM_DLLTOOL)
    install(FILES ${PROJECT_BINARY_DIR}/mediaadapter.lib DESTINATION ${CMAKE_INSTALL_LIBDIR})
  endif()
endif()
