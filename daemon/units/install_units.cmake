# Installs the service, the socket, the udev rule and the tmpfiles entry, run
# by `cmake --install` once the prefix is known. A folder given when the
# project was configured wins; then, installed to /usr, the one this
# machine's systemd or udev names; else the usual one below the prefix, for a
# tree of its own that systemd would not read anyway.
function(langmon_units_dir out given found fallback)
  if(given)
    set(dir "${given}")
  elseif(found AND CMAKE_INSTALL_PREFIX STREQUAL "/usr")
    set(dir "${found}")
  else()
    set(dir "${CMAKE_INSTALL_PREFIX}/${fallback}")
  endif()
  if(NOT IS_ABSOLUTE "${dir}")
    set(dir "${CMAKE_INSTALL_PREFIX}/${dir}")
  endif()
  set(${out} "$ENV{DESTDIR}${dir}" PARENT_SCOPE)
endfunction()

langmon_units_dir(unit_dir "${LANGMON_UNITS_UNIT_DIR}" "${LANGMON_UNITS_PC_UNIT_DIR}" lib/systemd/system)
langmon_units_dir(tmpfiles_dir "${LANGMON_UNITS_TMPFILES_DIR}" "${LANGMON_UNITS_PC_TMPFILES_DIR}" lib/tmpfiles.d)
langmon_units_dir(udev_dir "${LANGMON_UNITS_UDEV_DIR}" "${LANGMON_UNITS_PC_UDEV_DIR}" lib/udev)

if(IS_ABSOLUTE "${LANGMON_UNITS_BINDIR}")
  set(CMAKE_INSTALL_FULL_BINDIR "${LANGMON_UNITS_BINDIR}")
else()
  set(CMAKE_INSTALL_FULL_BINDIR "${CMAKE_INSTALL_PREFIX}/${LANGMON_UNITS_BINDIR}")
endif()

function(langmon_units_put source destination)
  message(STATUS "Installing: ${destination}")
  configure_file("${source}" "${destination}" @ONLY)
  list(APPEND CMAKE_INSTALL_MANIFEST_FILES "${destination}")
  set(CMAKE_INSTALL_MANIFEST_FILES "${CMAKE_INSTALL_MANIFEST_FILES}" PARENT_SCOPE)
endfunction()

langmon_units_put("${LANGMON_UNITS_SOURCE}/langmond.service.in" "${unit_dir}/langmond.service")
langmon_units_put("${LANGMON_UNITS_SOURCE}/langmond.socket" "${unit_dir}/langmond.socket")
langmon_units_put("${LANGMON_UNITS_SOURCE}/70-langmon.rules" "${udev_dir}/rules.d/70-langmon.rules")
langmon_units_put("${LANGMON_UNITS_SOURCE}/langmon.conf" "${tmpfiles_dir}/langmon.conf")
