# The Python package kxifcmodel: the hand-written modules of
# python/kxifcmodel plus the schema tables generated from the digest, staged
# together in the build tree (build/python/kxifcmodel), installed into
# KX_PYTHON_INSTALL_DIR, and tested against the built shared library.
set(KX_PYTHON_STAGE ${CMAKE_BINARY_DIR}/python)
set(KX_PYTHON_PACKAGE ${KX_PYTHON_STAGE}/kxifcmodel)

file(GLOB KX_PYTHON_MODULES CONFIGURE_DEPENDS ${CMAKE_CURRENT_LIST_DIR}/kxifcmodel/*.py)
set(KX_PYTHON_STAGED)
foreach(module ${KX_PYTHON_MODULES})
  get_filename_component(module_name ${module} NAME)
  add_custom_command(OUTPUT ${KX_PYTHON_PACKAGE}/${module_name}
    COMMAND ${CMAKE_COMMAND} -E copy_if_different ${module} ${KX_PYTHON_PACKAGE}/${module_name}
    DEPENDS ${module} VERBATIM)
  list(APPEND KX_PYTHON_STAGED ${KX_PYTHON_PACKAGE}/${module_name})
endforeach()

add_custom_command(OUTPUT ${KX_PYTHON_PACKAGE}/_schema.py
  COMMAND Python3::Interpreter ${CMAKE_CURRENT_LIST_DIR}/generate_binding.py
          ${CMAKE_SOURCE_DIR}/schema/ifc.digest ${KX_PYTHON_PACKAGE}/_schema.py
  DEPENDS ${CMAKE_CURRENT_LIST_DIR}/generate_binding.py ${CMAKE_SOURCE_DIR}/schema/ifc.digest
          ${CMAKE_SOURCE_DIR}/tools/schema_model.py ${CMAKE_SOURCE_DIR}/tools/generate_schema.py
  COMMENT "Generating the Python package's schema tables" VERBATIM)

# The staged package loads the library of this build.
file(GENERATE OUTPUT ${KX_PYTHON_PACKAGE}/_location.py
     CONTENT "# Where the shared library is (made by CMake).\nLIBRARY = \"$<TARGET_FILE:kxifcmodel>\"\n")
add_custom_target(kxifcmodel_python ALL DEPENDS ${KX_PYTHON_STAGED} ${KX_PYTHON_PACKAGE}/_schema.py)

# Installed, the package finds the library through a path relative to its
# own folder, written at install time when the prefix is known.
install(DIRECTORY ${KX_PYTHON_PACKAGE} DESTINATION ${KX_PYTHON_INSTALL_DIR}
        FILES_MATCHING PATTERN "*.py" PATTERN "_location.py" EXCLUDE PATTERN "__pycache__" EXCLUDE)
install(CODE "set(KX_PYTHON_INSTALL_DIR \"${KX_PYTHON_INSTALL_DIR}\")
set(KX_LIBRARY_INSTALL_DIR \"${CMAKE_INSTALL_LIBDIR}\")
set(KX_LIBRARY_SONAME \"$<TARGET_SONAME_FILE_NAME:kxifcmodel>\")")
install(SCRIPT ${CMAKE_CURRENT_LIST_DIR}/install_location.cmake)

# The tests and the Python examples load the library into python3: not under
# the sanitizers, whose runtime must come first in a process and cannot be
# loaded into an uninstrumented interpreter.
if(KX_BUILD_TESTS AND NOT KX_SANITIZE)
  set(KX_PYTHON_TEST_ENVIRONMENT
      "PYTHONPATH=${KX_PYTHON_STAGE}" "KXIFCMODEL_LIBRARY=$<TARGET_FILE:kxifcmodel>"
      "KX_SHARED_DIR=${KX_SHARED_DIR}" "KX_SAMPLE=${CMAKE_SOURCE_DIR}/examples/data/sample_house.ifc"
      "KX_TEST_OUTPUT=${CMAKE_BINARY_DIR}/python_tests" "PYTHONDONTWRITEBYTECODE=1")
  file(GLOB KX_PYTHON_TESTS CONFIGURE_DEPENDS ${CMAKE_CURRENT_LIST_DIR}/tests/test_*.py)
  foreach(test ${KX_PYTHON_TESTS})
    get_filename_component(test_name ${test} NAME_WE)
    add_test(NAME python_${test_name} COMMAND Python3::Interpreter -m unittest -v ${test_name}
             WORKING_DIRECTORY ${CMAKE_CURRENT_LIST_DIR}/tests)
    set_tests_properties(python_${test_name} PROPERTIES ENVIRONMENT "${KX_PYTHON_TEST_ENVIRONMENT}")
  endforeach()

  # The Python examples: a house built through the relationship helpers,
  # and the walls of each storey of the bundled sample with their properties
  # (the same listing as the C++ example's).
  add_test(NAME python_example_build_house
           COMMAND Python3::Interpreter ${CMAKE_SOURCE_DIR}/examples/build_house.py ${CMAKE_BINARY_DIR}/examples)
  add_test(NAME python_example_walls_per_storey
           COMMAND Python3::Interpreter ${CMAKE_SOURCE_DIR}/examples/walls_per_storey.py)
  set_tests_properties(python_example_build_house python_example_walls_per_storey PROPERTIES
    ENVIRONMENT "${KX_PYTHON_TEST_ENVIRONMENT}")
  set_tests_properties(python_example_build_house PROPERTIES PASS_REGULAR_EXPRESSION
    "python_house.ifc: [0-9]+ instances, relations as built\n  Ground floor at 0 mm: Wall 1.1, Wall 1.2, Wall 1.3\n")
  set_tests_properties(python_example_walls_per_storey PROPERTIES PASS_REGULAR_EXPRESSION
    "storey #19 Ground floor\n    IfcWall #29 South wall\n      Pset_WallCommon.IsExternal = True [(]IfcBoolean[)]\n      Pset_WallCommon.Height = 3.0 [(]IfcLengthMeasure[)]")
endif()
