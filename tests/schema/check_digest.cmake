# Re-reads the two EXPRESS schemas with tools/express_digest.py and compares
# the result byte for byte with the committed schema/ifc.digest.
#
# cmake -DPYTHON=<python3> -DSOURCE_DIR=<checkout> -DSHARED_DIR=<shared>
#       -DOUTPUT=<file in the build dir> -P check_digest.cmake
#
# Without <shared>/schemas the script says so and succeeds; the test marks
# itself skipped on that message.
foreach(variable PYTHON SOURCE_DIR SHARED_DIR OUTPUT)
  if(NOT DEFINED ${variable})
    message(FATAL_ERROR "check_digest.cmake: ${variable} is not set")
  endif()
endforeach()

set(schemas "${SHARED_DIR}/schemas")
set(ifc2x3 "${schemas}/IFC2X3_TC1.exp")
set(ifc4 "${schemas}/IFC4_ADD2_TC1.exp")
if(NOT EXISTS "${ifc2x3}" OR NOT EXISTS "${ifc4}")
  message("schema digest check skipped: ${schemas} does not hold IFC2X3_TC1.exp and IFC4_ADD2_TC1.exp")
  return()
endif()

execute_process(
  COMMAND "${PYTHON}" "${SOURCE_DIR}/tools/express_digest.py" "${ifc2x3}" "${ifc4}"
  OUTPUT_FILE "${OUTPUT}"
  ERROR_VARIABLE errors
  RESULT_VARIABLE result)
if(NOT result EQUAL 0)
  message(FATAL_ERROR "express_digest.py failed (${result}):\n${errors}")
endif()

execute_process(
  COMMAND "${CMAKE_COMMAND}" -E compare_files "${OUTPUT}" "${SOURCE_DIR}/schema/ifc.digest"
  RESULT_VARIABLE different)
if(NOT different EQUAL 0)
  message(FATAL_ERROR "the digest made from the schemas (${OUTPUT}) differs from schema/ifc.digest")
endif()
message("schema digest reproduced byte for byte: ${OUTPUT}")
