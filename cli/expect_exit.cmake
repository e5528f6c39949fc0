# Runs COMMAND (a ;-list) and checks its exit status against EXIT and, when
# given, its standard output against the regular expression OUTPUT.
execute_process(COMMAND ${COMMAND} RESULT_VARIABLE status OUTPUT_VARIABLE output ERROR_VARIABLE errors)
if(NOT status STREQUAL EXIT)
  message(FATAL_ERROR "exit status ${status}, expected ${EXIT}\n${output}${errors}")
endif()
if(DEFINED OUTPUT AND NOT output MATCHES "${OUTPUT}")
  message(FATAL_ERROR "output does not match \"${OUTPUT}\":\n${output}")
endif()
