# `cmake --build build --target docs`: the API reference in build/docs/html,
# made by Doxygen from the comments of the public headers (the generated
# ones included). Only when Doxygen is installed; nothing is committed.
find_package(Doxygen QUIET)
if(DOXYGEN_FOUND)
  set(DOXYGEN_PROJECT_NAME kxifcmodel)
  set(DOXYGEN_PROJECT_NUMBER ${PROJECT_VERSION})
  set(DOXYGEN_PROJECT_BRIEF "IFC2X3 and IFC4 object model with a flat C interface")
  set(DOXYGEN_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/docs)
  set(DOXYGEN_GENERATE_LATEX NO)
  set(DOXYGEN_EXTRACT_ALL YES)
  set(DOXYGEN_OPTIMIZE_OUTPUT_FOR_C YES)
  set(DOXYGEN_JAVADOC_AUTOBRIEF YES)
  set(DOXYGEN_QUIET YES)
  set(DOXYGEN_WARN_IF_UNDOCUMENTED NO)
  set(DOXYGEN_WARN_LOGFILE ${CMAKE_BINARY_DIR}/docs/warnings.log)
  set(DOXYGEN_ENABLE_PREPROCESSING YES)
  set(DOXYGEN_MACRO_EXPANSION YES)
  set(DOXYGEN_EXPAND_ONLY_PREDEF YES)
  set(DOXYGEN_PREDEFINED "KX_API=" "KX_EXTERN_C_BEGIN=" "KX_EXTERN_C_END=")
  # The headers document each declaration in the plain comment above it:
  # the filter makes those comments documentation comments.
  set(DOXYGEN_INPUT_FILTER "sed -e 's|^\\([ ]*\\)/\\* |\\1/** |' -e 's|^\\([ ]*\\)// |\\1/// |'")
  set(DOXYGEN_FILE_PATTERNS *.h *.hpp *.md)
  set(DOXYGEN_USE_MDFILE_AS_MAINPAGE ${CMAKE_SOURCE_DIR}/README.md)
  doxygen_add_docs(docs ${CMAKE_SOURCE_DIR}/README.md ${CMAKE_SOURCE_DIR}/docs ${CMAKE_SOURCE_DIR}/include
                   ${KX_GENERATED_INCLUDE_DIR}
                   COMMENT "Generating the API reference into ${CMAKE_BINARY_DIR}/docs")
  add_dependencies(docs kx_generate)
endif()
