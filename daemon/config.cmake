# langmond's configuration (a library the daemon and its tests link), and the
# files that make the daemon a system service, installed by `cmake --install`.

# TOML through toml++ (Debian: libtomlplusplus-dev), which Debian builds as a
# shared library; its pkg-config file carries the flags that say so.
pkg_check_modules(TOMLPLUSPLUS REQUIRED IMPORTED_TARGET tomlplusplus)

add_library(langmon_daemon_config STATIC
  ${CMAKE_CURRENT_LIST_DIR}/daemon_config.cpp
  ${CMAKE_CURRENT_LIST_DIR}/daemon_config_change.cpp
  ${CMAKE_CURRENT_LIST_DIR}/daemon_monitor_settings.cpp)
target_include_directories(langmon_daemon_config PUBLIC ${PROJECT_SOURCE_DIR})
# Addresses are checked, and ports chosen, as the command does it.
target_link_libraries(langmon_daemon_config PUBLIC langmon_tool_commands langmon_status_protocol PRIVATE PkgConfig::TOMLPLUSPLUS)

# The service's ExecStart names the installed langmond, and where systemd,
# udev and systemd-tmpfiles look depends on the prefix: both are settled when
# the project is installed, as `cmake --install --prefix P` chooses the
# prefix only then (see units/install_units.cmake). The folders this
# machine's systemd names are found now, through pkg-config.
foreach(module systemd udev)
  pkg_check_modules(LANGMON_PC_${module} QUIET ${module})
endforeach()
set(LANGMON_SYSTEMD_UNIT_DIR "" CACHE PATH "Where systemd units go (empty: as systemd.pc says for /usr, else lib/systemd/system under the prefix)")
set(LANGMON_TMPFILES_DIR "" CACHE PATH "Where tmpfiles.d entries go (empty: as systemd.pc says for /usr, else lib/tmpfiles.d)")
set(LANGMON_UDEV_DIR "" CACHE PATH "udev's folder, whose rules.d gets the rule (empty: as udev.pc says for /usr, else lib/udev)")
if(LANGMON_PC_systemd_FOUND)
  pkg_get_variable(LANGMON_PC_UNIT_DIR systemd systemdsystemunitdir)
  pkg_get_variable(LANGMON_PC_TMPFILES_DIR systemd tmpfilesdir)
endif()
if(LANGMON_PC_udev_FOUND)
  pkg_get_variable(LANGMON_PC_UDEV_DIR udev udevdir)
endif()

install(CODE "
  set(LANGMON_UNITS_SOURCE \"${CMAKE_CURRENT_LIST_DIR}/units\")
  set(LANGMON_UNITS_BINDIR \"${CMAKE_INSTALL_BINDIR}\")
  set(LANGMON_UNITS_UNIT_DIR \"${LANGMON_SYSTEMD_UNIT_DIR}\")
  set(LANGMON_UNITS_TMPFILES_DIR \"${LANGMON_TMPFILES_DIR}\")
  set(LANGMON_UNITS_UDEV_DIR \"${LANGMON_UDEV_DIR}\")
  set(LANGMON_UNITS_PC_UNIT_DIR \"${LANGMON_PC_UNIT_DIR}\")
  set(LANGMON_UNITS_PC_TMPFILES_DIR \"${LANGMON_PC_TMPFILES_DIR}\")
  set(LANGMON_UNITS_PC_UDEV_DIR \"${LANGMON_PC_UDEV_DIR}\")
  include(\"${CMAKE_CURRENT_LIST_DIR}/units/install_units.cmake\")
")
# The sample configuration, for an administrator to copy to /etc/langmon.
install(FILES ${PROJECT_SOURCE_DIR}/examples/langmond.conf DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/langmon/examples)
