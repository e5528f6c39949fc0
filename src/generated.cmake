# The schema binding is generated at build time from the committed digest.
set(KX_GENERATED_DIR ${CMAKE_BINARY_DIR}/generated)
set(KX_GENERATED_INCLUDE_DIR ${KX_GENERATED_DIR}/include)
set(KX_GENERATED_PRIVATE_DIR ${KX_GENERATED_DIR}/src)
set(KX_DIGEST ${CMAKE_SOURCE_DIR}/schema/ifc.digest)
set(KX_GENERATED_SOURCES
  ${KX_GENERATED_PRIVATE_DIR}/schema_tables.cpp
  ${KX_GENERATED_PRIVATE_DIR}/schema_exports_0.cpp
  ${KX_GENERATED_PRIVATE_DIR}/schema_exports_1.cpp
  ${KX_GENERATED_PRIVATE_DIR}/schema_exports_2.cpp
  ${KX_GENERATED_PRIVATE_DIR}/schema_exports_3.cpp
  ${KX_GENERATED_PRIVATE_DIR}/schema_exports_4.cpp
  ${KX_GENERATED_PRIVATE_DIR}/schema_exports_5.cpp
  ${KX_GENERATED_PRIVATE_DIR}/schema_exports_6.cpp
  ${KX_GENERATED_PRIVATE_DIR}/schema_exports_7.cpp)
set(KX_GENERATED_HEADERS ${KX_GENERATED_INCLUDE_DIR}/kxifc_schema.h ${KX_GENERATED_DIR}/manifest/accessors.tsv
  ${KX_GENERATED_DIR}/manifest/accessor_table.inc)
add_custom_command(
  OUTPUT ${KX_GENERATED_SOURCES} ${KX_GENERATED_HEADERS}
  COMMAND ${Python3_EXECUTABLE} ${CMAKE_SOURCE_DIR}/tools/generate_schema.py ${KX_DIGEST} ${KX_GENERATED_DIR}
  DEPENDS ${KX_DIGEST} ${CMAKE_SOURCE_DIR}/tools/generate_schema.py ${CMAKE_SOURCE_DIR}/tools/schema_model.py
  COMMENT "Generating the schema binding"
  VERBATIM)
# Code pages of the \S\ string directive, from Python's codecs.
set(KX_CODEPAGES ${KX_GENERATED_PRIVATE_DIR}/codepages.inc)
add_custom_command(
  OUTPUT ${KX_CODEPAGES}
  COMMAND ${Python3_EXECUTABLE} ${CMAKE_SOURCE_DIR}/tools/generate_codepages.py ${KX_CODEPAGES}
  DEPENDS ${CMAKE_SOURCE_DIR}/tools/generate_codepages.py
  COMMENT "Generating the ISO 8859 code pages"
  VERBATIM)
list(APPEND KX_GENERATED_SOURCES ${KX_CODEPAGES})
add_custom_target(kx_generate DEPENDS ${KX_GENERATED_SOURCES} ${KX_GENERATED_HEADERS})
# Make the generated header visible to targets configured before the library.
set(KX_GENERATED_INCLUDE_DIR ${KX_GENERATED_INCLUDE_DIR} PARENT_SCOPE)
set(KX_GENERATED_DIR ${KX_GENERATED_DIR} PARENT_SCOPE)
set(KX_HAVE_GENERATED TRUE PARENT_SCOPE)
