# Installs the built project into a fresh prefix, then builds and runs the
# consumer project against it, once finding the library through pkg-config
# and once through find_package.
# Arguments: BUILD_DIR, CONSUMER_DIR, WORK_DIR, GENERATOR, C_COMPILER,
# CXX_COMPILER, SAMPLE; PYTHON and PYTHON_DIR (the package's folder under
# the prefix) to check that the installed Python package reads the sample
# through the installed library.
function(run_step)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE err)
  if(NOT rc EQUAL 0)
    message(FATAL_ERROR "failed (${rc}): ${ARGN}\n${out}\n${err}")
  endif()
  message(STATUS "${out}")
endfunction()

set(prefix ${WORK_DIR}/prefix)
file(REMOVE_RECURSE ${WORK_DIR})
run_step(${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${prefix})
run_step(${prefix}/bin/kxifc stats ${SAMPLE})

foreach(use_pkg_config OFF ON)
  set(build ${WORK_DIR}/pkg_config_${use_pkg_config})
  run_step(${CMAKE_COMMAND} -S ${CONSUMER_DIR} -B ${build} -G ${GENERATOR}
           -DCMAKE_C_COMPILER=${C_COMPILER} -DCMAKE_CXX_COMPILER=${CXX_COMPILER}
           -DCMAKE_PREFIX_PATH=${prefix} -DUSE_PKG_CONFIG=${use_pkg_config})
  run_step(${CMAKE_COMMAND} --build ${build})
  run_step(${build}/consumer_c ${SAMPLE})
  run_step(${build}/consumer_cxx ${SAMPLE})
endforeach()

if(PYTHON AND NOT IS_ABSOLUTE "${PYTHON_DIR}")
  run_step(${CMAKE_COMMAND} -E env --unset=KXIFCMODEL_LIBRARY PYTHONPATH=${prefix}/${PYTHON_DIR} PYTHONDONTWRITEBYTECODE=1
           ${PYTHON} -c "import kxifcmodel, kxifcmodel._native as n
assert n.lib._name.startswith('${prefix}/'), n.lib._name
model = kxifcmodel.open('${SAMPLE}')
print('python:', model.schema, len(model), 'instances through', n.lib._name)")
endif()
