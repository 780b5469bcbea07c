# The library, in the layers of docs/architecture.md. Everything above the platform floor is compiled once and linked
# into the shared library (with this system's floor) and into the tests (with a simulated one).

# The header says which version it is; there is one version.
file(STRINGS ${PROJECT_SOURCE_DIR}/api/media_adapter.h header_version REGEX "define MEDIA_ADAPTER_VERSION_[A-Z]+ [0-9]+")
string(REGEX REPLACE "[^0-9]+" "." header_version "${header_version}")
if(NOT header_version STREQUAL ".${PROJECT_VERSION}")
  message(FATAL_ERROR "The project's version is ${PROJECT_VERSION}, that of api/media_adapter.h is another.")
endif()

# The wire format and the element table: no state, no I/O. The simulator and the command-line tool use them too.
add_library(media_adapter_wire STATIC
  protocol/element_table.cpp
  protocol/md5.cpp
  protocol/rc4.cpp)

add_library(media_adapter_core OBJECT
  api/exports.cpp
  api/request_gate.cpp
  api/result_blocks.cpp
  api/status_table.cpp
  worker/device_socket_setup.cpp
  worker/handlers.cpp
  worker/interface_change.cpp
  worker/library.cpp
  worker/volume_access.cpp
  worker/worker_thread.cpp
  fileops/delete_file.cpp
  fileops/format_volume.cpp
  fileops/make_directory.cpp
  fileops/read_item.cpp
  fileops/receive_file.cpp
  fileops/receive_window.cpp
  fileops/store_local_file.cpp
  fat/cluster_chain.cpp
  fat/device_path.cpp
  fat/directory_listing.cpp
  fat/directory_scan.cpp
  fat/directory_sectors.cpp
  fat/entry_creation.cpp
  fat/path_lookup.cpp
  fat/sector_buffers.cpp
  fat/short_name.cpp
  fat/volume.cpp
  protocol/channel.cpp
  protocol/config_elements.cpp
  protocol/exchange.cpp
  protocol/packet.cpp
  protocol/parse_elements.cpp
  protocol/protocol_state.cpp
  protocol/reception.cpp
  protocol/requests.cpp
  protocol/sector_access.cpp
  platform/message_queue.cpp)
target_compile_definitions(media_adapter_core PRIVATE MEDIA_ADAPTER_BUILD)

# Dense code, in few lines of the processor's cache: see protocol/exchange.h.
set(dense $<$<CXX_COMPILER_ID:GNU>:-fno-align-functions;-fno-align-jumps;-fno-align-labels;-fno-align-loops;-fno-plt;-fno-tree-vectorize>)
target_compile_options(media_adapter_core PRIVATE ${dense})
target_compile_options(media_adapter_wire PRIVATE ${dense})

# The platform floor: one folder a system, sources of the same names.
find_package(Threads REQUIRED)
set(platform_folder platform/$<IF:$<BOOL:${WIN32}>,windows,posix>)
add_library(media_adapter_local_files STATIC
  platform/local_file.cpp ${platform_folder}/exclusive_file.cpp ${platform_folder}/local_files.cpp
  $<$<BOOL:${WIN32}>:${platform_folder}/code_page.cpp>)
add_library(media_adapter_platform STATIC
  ${platform_folder}/adapters.cpp
  ${platform_folder}/clock.cpp
  ${platform_folder}/datagram_socket.cpp
  ${platform_folder}/event.cpp
  ${platform_folder}/notices.cpp
  ${platform_folder}/process.cpp
  ${platform_folder}/thread.cpp
  ${platform_folder}/waiter.cpp)
target_compile_options(media_adapter_platform PRIVATE ${dense})
target_link_libraries(media_adapter_platform PUBLIC media_adapter_local_files Threads::Threads)
if(NOT WIN32)
  target_compile_definitions(media_adapter_local_files PRIVATE _FILE_OFFSET_BITS=64)  # where offsets have 32 bits
else()
  target_sources(media_adapter_platform PRIVATE ${platform_folder}/mutex.cpp)
  target_link_libraries(media_adapter_platform PUBLIC ws2_32 iphlpapi)
endif()

add_library(mediaadapter SHARED ${platform_folder}/load_hook.cpp)
add_library(MediaAdapter::MediaAdapter ALIAS mediaadapter)
target_link_libraries(mediaadapter PRIVATE media_adapter_core media_adapter_platform media_adapter_wire)
target_include_directories(mediaadapter INTERFACE
  $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/api> $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)
set_target_properties(mediaadapter PROPERTIES EXPORT_NAME MediaAdapter)
if(WIN32)
  # What is exported says so in the public header.
  set_target_properties(mediaadapter PROPERTIES PREFIX "")
  include(${PROJECT_SOURCE_DIR}/cmake/windows_parts.cmake)
  windows_parts(mediaadapter "${PROJECT_DESCRIPTION}")
else()
  set(exports ${PROJECT_SOURCE_DIR}/cmake/exports.map)
  set_target_properties(mediaadapter PROPERTIES
    VERSION ${PROJECT_VERSION}
    SOVERSION ${PROJECT_VERSION_MAJOR}
    LINK_DEPENDS ${exports})
  target_link_options(mediaadapter PRIVATE LINKER:--version-script=${exports})
endif()
if(NOT MEDIA_ADAPTER_SANITIZE)
  target_link_options(mediaadapter PRIVATE LINKER:--no-undefined)
endif()
