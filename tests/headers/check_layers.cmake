# Fails when a source folder includes from a folder above it. The folders
# stack support -> core -> model -> schema -> step and services (those two
# side by side, neither including the other).
set(above_support "core|model|schema|step|services")
set(above_core "model|schema|step|services")
set(above_model "schema|step|services")
set(above_schema "step|services")
set(above_step "services")
set(above_services "step")
foreach(folder support core model schema step services)
  file(GLOB sources ${SRC}/${folder}/*.h ${SRC}/${folder}/*.cpp)
  foreach(source ${sources})
    file(STRINGS ${source} includes REGEX "^#include \"(${above_${folder}})/")
    if(includes)
      message(SEND_ERROR "${source} includes from a folder above ${folder}: ${includes}")
    endif()
  endforeach()
endforeach()
