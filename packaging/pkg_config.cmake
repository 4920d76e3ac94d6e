# Writes langmon.pc when the project is installed, not when it is configured:
# `cmake --install --prefix P` chooses the prefix only then, and the file has
# to name the folders the headers and the library end up in. The caller sets
# LANGMON_PC_TEMPLATE, LANGMON_PC_VERSION and the install folders.
foreach(kind LIBDIR INCLUDEDIR PKGCONFIGDIR)
  if(IS_ABSOLUTE "${LANGMON_PC_INSTALL_${kind}}")
    set(full_${kind} "${LANGMON_PC_INSTALL_${kind}}")
  else()
    set(full_${kind} "${CMAKE_INSTALL_PREFIX}/${LANGMON_PC_INSTALL_${kind}}")
  endif()
endforeach()

set(LANGMON_PC_PREFIX "${CMAKE_INSTALL_PREFIX}")
string(REPLACE "${CMAKE_INSTALL_PREFIX}/" "\${prefix}/" LANGMON_PC_LIBDIR "${full_LIBDIR}")
string(REPLACE "${CMAKE_INSTALL_PREFIX}/" "\${prefix}/" LANGMON_PC_INCLUDEDIR "${full_INCLUDEDIR}")

set(destination "$ENV{DESTDIR}${full_PKGCONFIGDIR}/langmon.pc")
message(STATUS "Installing: ${destination}")
configure_file("${LANGMON_PC_TEMPLATE}" "${destination}" @ONLY)
list(APPEND CMAKE_INSTALL_MANIFEST_FILES "${destination}")
