# Runs kxifc once per case and checks its exit status. CASES is a list of
# "STATUS ARGUMENT..." entries whose arguments are separated by blanks.
foreach(case IN LISTS CASES)
  separate_arguments(words UNIX_COMMAND "${case}")
  list(POP_FRONT words expected)
  execute_process(COMMAND ${KXIFC} ${words} RESULT_VARIABLE status OUTPUT_QUIET ERROR_QUIET)
  if(NOT status STREQUAL expected)
    list(JOIN words " " command_line)
    message(SEND_ERROR "kxifc ${command_line}: exit ${status}, expected ${expected}")
  endif()
endforeach()
