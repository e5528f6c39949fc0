# Runs at install time: writes the installed package's _location.py with
# the path of the shared library relative to the package's folder, so the
# installed tree can move as a whole. Set before: KX_PYTHON_INSTALL_DIR,
# KX_LIBRARY_INSTALL_DIR (relative to the prefix or absolute),
# KX_LIBRARY_SONAME.
foreach(dir KX_PYTHON_INSTALL_DIR KX_LIBRARY_INSTALL_DIR)
  if(IS_ABSOLUTE "${${dir}}")
    set(${dir}_FULL "${${dir}}")
  else()
    set(${dir}_FULL "${CMAKE_INSTALL_PREFIX}/${${dir}}")
  endif()
endforeach()
set(package_dir "${KX_PYTHON_INSTALL_DIR_FULL}/kxifcmodel")
file(RELATIVE_PATH library "${package_dir}" "${KX_LIBRARY_INSTALL_DIR_FULL}/${KX_LIBRARY_SONAME}")
message(STATUS "Installing: $ENV{DESTDIR}${package_dir}/_location.py")
file(WRITE "$ENV{DESTDIR}${package_dir}/_location.py"
     "# Where the shared library is, from this folder (written at install).\nLIBRARY = \"${library}\"\n")
