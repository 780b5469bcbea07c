# install: header, library, CMake package, pkg-config file, tools, pages and examples, where a distribution expects them.
include(CMakePackageConfigHelpers)

install(TARGETS mediaadapter EXPORT MediaAdapterTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR}   # the DLL, and its import library below
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR})
install(FILES api/media_adapter.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})

set(package_folder ${CMAKE_INSTALL_LIBDIR}/cmake/MediaAdapter)
install(EXPORT MediaAdapterTargets NAMESPACE MediaAdapter:: DESTINATION ${package_folder})
file(WRITE ${PROJECT_BINARY_DIR}/MediaAdapterConfig.cmake
  "include(\"\${CMAKE_CURRENT_LIST_DIR}/MediaAdapterTargets.cmake\")\n")
write_basic_package_version_file(${PROJECT_BINARY_DIR}/MediaAdapterConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/MediaAdapterConfig.cmake ${PROJECT_BINARY_DIR}/MediaAdapterConfigVersion.cmake
  DESTINATION ${package_folder})

# Relative, so that an installed tree may be moved.
file(RELATIVE_PATH library_from_bin ${CMAKE_INSTALL_FULL_BINDIR} ${CMAKE_INSTALL_FULL_LIBDIR})
file(RELATIVE_PATH prefix_from_pkgconfig ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
configure_file(cmake/media-adapter.pc.in media-adapter.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/media-adapter.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

if(PROJECT_IS_TOP_LEVEL)
  add_custom_target(uninstall
    COMMAND ${CMAKE_COMMAND} -D manifest=${PROJECT_BINARY_DIR}/install_manifest.txt
      -P ${PROJECT_SOURCE_DIR}/cmake/uninstall.cmake
    COMMENT "Removing what the last installation brought" VERBATIM)
endif()

# The pages lie as they do in the sources, so that their links lead somewhere.
install(FILES README.md CHANGELOG.md SECURITY.md DESTINATION ${CMAKE_INSTALL_DOCDIR})
install(FILES docs/architecture.md docs/performance.md docs/protocol.md docs/troubleshooting.md docs/windows.md
  DESTINATION ${CMAKE_INSTALL_DOCDIR}/docs)
install(DIRECTORY examples DESTINATION ${CMAKE_INSTALL_DOCDIR} USE_SOURCE_PERMISSIONS)

# The folder of global Lua plugins of a Wireshark that is installed below the same prefix.
install(FILES tools/wireshark/media_adapter.lua DESTINATION ${CMAKE_INSTALL_LIBDIR}/wireshark/plugins)

foreach(tool media-adapter media-adapter-sim)
  if(TARGET ${tool})
    set_target_properties(${tool} PROPERTIES INSTALL_RPATH $ORIGIN/${library_from_bin})
    install(TARGETS ${tool} RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
    if(NOT WIN32)
      install(FILES docs/man/${tool}.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
    endif()
  endif()
endforeach()
set(MEDIA_ADAPTER_ZSH_FOLDER ${CMAKE_INSTALL_DATADIR}/zsh/site-functions
  CACHE STRING "Where zsh looks for completions, below the prefix")
if(TARGET media-adapter AND NOT WIN32)
  install(FILES cli/completions/media-adapter.bash
    DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions RENAME media-adapter)
  install(FILES cli/completions/_media-adapter DESTINATION ${MEDIA_ADAPTER_ZSH_FOLDER})
endif()
