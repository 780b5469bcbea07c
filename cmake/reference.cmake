# The reference, from the comments of the public header: manual pages where there is an awk, HTML where there is doxygen.
set(reference_folder ${PROJECT_BINARY_DIR}/reference)
set(reference_source ${PROJECT_SOURCE_DIR}/docs/reference)
set(public_header ${PROJECT_SOURCE_DIR}/api/media_adapter.h)

find_program(AWK awk)
if(AWK AND NOT WIN32)
  string(TIMESTAMP reference_date "%B %d, %Y" UTC)
  file(MAKE_DIRECTORY ${reference_folder}/man3)
  add_custom_command(OUTPUT ${reference_folder}/man3/media_adapter.3
    COMMAND ${AWK} -v folder=${reference_folder}/man3 -v "date=${reference_date}"
      -f ${reference_source}/man_pages.awk ${public_header}
    DEPENDS ${reference_source}/man_pages.awk ${public_header}
    COMMENT "Manual pages of the library" VERBATIM)
  add_custom_target(reference_man ALL DEPENDS ${reference_folder}/man3/media_adapter.3)
  install(DIRECTORY ${reference_folder}/man3 DESTINATION ${CMAKE_INSTALL_MANDIR})
endif()

find_program(DOXYGEN doxygen)
if(DOXYGEN)
  set(reference_warnings_as_errors NO)
  if(CMAKE_COMPILE_WARNING_AS_ERROR)
    set(reference_warnings_as_errors YES)
  endif()
  configure_file(${reference_source}/Doxyfile.in ${reference_folder}/Doxyfile @ONLY)
  add_custom_command(OUTPUT ${reference_folder}/html/index.html
    COMMAND ${DOXYGEN} ${reference_folder}/Doxyfile
    DEPENDS ${reference_folder}/Doxyfile ${reference_source}/doxygen_comments.sed ${public_header}
    COMMENT "Reference as HTML" VERBATIM)
  add_custom_target(reference_html ALL DEPENDS ${reference_folder}/html/index.html)
  install(DIRECTORY ${reference_folder}/html DESTINATION ${CMAKE_INSTALL_DOCDIR} OPTIONAL)
endif()
