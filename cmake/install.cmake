# What `cmake --install` puts under the prefix: both libraries, the public
# headers (hand-written and generated) in include/kxifcmodel, a pkg-config
# file, a CMake package giving kxifcmodel::kxifcmodel and the kxifc tool
# (the Python package: python/python.cmake).
include(CMakePackageConfigHelpers)

set(KX_INSTALL_INCLUDEDIR ${CMAKE_INSTALL_INCLUDEDIR}/kxifcmodel)
set(KX_INSTALL_CMAKEDIR ${CMAKE_INSTALL_LIBDIR}/cmake/kxifcmodel)
set(KX_PYTHON_INSTALL_DIR ${CMAKE_INSTALL_LIBDIR}/python3/dist-packages
    CACHE STRING "Where the Python package kxifcmodel is installed (relative to the prefix or absolute)")

# The installed tool finds the library beside it, wherever the prefix is.
set_target_properties(kxifc PROPERTIES INSTALL_RPATH "$ORIGIN/../${CMAKE_INSTALL_LIBDIR}")
install(TARGETS kxifcmodel kxifcmodel_static kxifc EXPORT kxifcmodelTargets
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR}
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR})

file(GLOB KX_PUBLIC_HEADERS ${CMAKE_SOURCE_DIR}/include/*.h ${CMAKE_SOURCE_DIR}/include/*.hpp)
install(FILES ${KX_PUBLIC_HEADERS} ${KX_GENERATED_INCLUDE_DIR}/kxifc_schema.h
              ${KX_GENERATED_INCLUDE_DIR}/kxifc_version.h
        DESTINATION ${KX_INSTALL_INCLUDEDIR})

install(EXPORT kxifcmodelTargets NAMESPACE kxifcmodel:: DESTINATION ${KX_INSTALL_CMAKEDIR})
configure_package_config_file(${CMAKE_SOURCE_DIR}/cmake/kxifcmodelConfig.cmake.in
  ${CMAKE_BINARY_DIR}/kxifcmodelConfig.cmake INSTALL_DESTINATION ${KX_INSTALL_CMAKEDIR})
# Before 1.0 a minor release may break the interface.
write_basic_package_version_file(${CMAKE_BINARY_DIR}/kxifcmodelConfigVersion.cmake
  COMPATIBILITY SameMinorVersion)
install(FILES ${CMAKE_BINARY_DIR}/kxifcmodelConfig.cmake ${CMAKE_BINARY_DIR}/kxifcmodelConfigVersion.cmake
        DESTINATION ${KX_INSTALL_CMAKEDIR})

file(RELATIVE_PATH KX_PC_TO_PREFIX /prefix/${CMAKE_INSTALL_LIBDIR}/pkgconfig /prefix)
string(REGEX REPLACE "/$" "" KX_PC_TO_PREFIX "${KX_PC_TO_PREFIX}")
configure_file(${CMAKE_SOURCE_DIR}/cmake/kxifcmodel.pc.in ${CMAKE_BINARY_DIR}/kxifcmodel.pc @ONLY)
install(FILES ${CMAKE_BINARY_DIR}/kxifcmodel.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
