# Every target of the project compiles with these; the headers of other libraries are exempt as system headers. They are
# errors in the project's own presets (CMAKE_COMPILE_WARNING_AS_ERROR): another compiler may know more of them.
add_compile_options(-Wall -Wextra -Wpedantic -Wconversion -Wshadow)
if(CMAKE_CXX_COMPILER_ID STREQUAL GNU AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
  add_compile_options($<$<COMPILE_LANGUAGE:CXX>:-Wno-restrict>)  # false alarms on "text" + std::string (GCC bug 105651)
endif()
if(CMAKE_CXX_COMPILER_ID STREQUAL Clang)
  add_compile_options(-Wno-sign-conversion)  # as GCC understands -Wconversion
endif()
include_directories(${PROJECT_SOURCE_DIR})

if(MEDIA_ADAPTER_SANITIZE)
  add_compile_options(-fsanitize=${MEDIA_ADAPTER_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  add_link_options(-fsanitize=${MEDIA_ADAPTER_SANITIZE})
endif()

if(MEDIA_ADAPTER_FUZZ)
  add_compile_options(-fsanitize=fuzzer-no-link)
endif()

if(MEDIA_ADAPTER_COVERAGE)
  add_compile_options(-fprofile-instr-generate -fcoverage-mapping)
  add_link_options(-fprofile-instr-generate)
endif()
