# Fails when the shared library exports a defined symbol of ours not starting
# with "kx", or when its exported families do not match the schema: one
# kxIfc<Type>_class per schema class (890 entities and 70 selects), one
# kx<Enumeration>_to_string per enumeration, and one inverse accessor per
# inverse row of the generated manifest (prints the totals).
execute_process(COMMAND nm -D --defined-only ${LIB} OUTPUT_VARIABLE symbols RESULT_VARIABLE rc)
if(NOT rc EQUAL 0)
  message(FATAL_ERROR "nm failed on ${LIB}")
endif()
string(REPLACE "\n" ";" lines "${symbols}")
set(count 0)
foreach(line ${lines})
  if(line MATCHES "^[0-9a-f]+ [TDBRVW] (.+)$")
    set(name "${CMAKE_MATCH_1}")
    if(NOT name MATCHES "^kx" AND NOT name MATCHES "^_(init|fini|edata|end|_bss_start)$")
      message(FATAL_ERROR "unexpected exported symbol: ${name}")
    endif()
    math(EXPR count "${count} + 1")
  endif()
endforeach()

string(REGEX MATCHALL " T kxIfc[A-Za-z0-9]+_class\n" classes "${symbols}")
string(REGEX MATCHALL " T kxIfc[A-Za-z0-9]+_to_string\n" to_strings "${symbols}")
string(REGEX MATCHALL " T kxIfc[A-Za-z0-9]+_inverse_relation_[A-Za-z0-9_]+\n" inverses "${symbols}")
list(LENGTH classes num_classes)
list(LENGTH to_strings num_to_strings)
list(LENGTH inverses num_inverses)

file(STRINGS ${MANIFEST} manifest_inverses REGEX "^inverse\t")
list(LENGTH manifest_inverses num_manifest_inverses)

message(STATUS "exported: ${count} kx symbols, ${num_classes} classes, ${num_to_strings} enumeration to_string, "
               "${num_inverses} inverse relations (manifest: ${num_manifest_inverses})")
function(expect_count found expected what)
  if(NOT found EQUAL expected)
    message(SEND_ERROR "expected ${expected} ${what}, found ${found}")
  endif()
endfunction()
expect_count(${num_classes} 960 "kxIfc*_class functions")
expect_count(${num_to_strings} 230 "enumeration _to_string functions")
expect_count(${num_inverses} ${num_manifest_inverses} "inverse accessors (one per manifest row)")
# Every inverse attribute of the two schemas on every entity inheriting it,
# split by release where the releases differ.
expect_count(${num_inverses} 7540 "inverse accessors")
