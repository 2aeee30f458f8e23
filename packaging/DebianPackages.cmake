# cpack makes the packages liborvex2-0-2, liborvex2-0-dev and orvd-sim. Debian's package names have no underscores. The
# name of a library package ends in the version of its soname.
set(DOC_DIR share/doc)

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME orvex2-0)
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "") # the first line of each description below is the summary
set(CPACK_PACKAGE_VENDOR "the liborvex2_0 developers")
set(CPACK_PACKAGE_CONTACT "the liborvex2_0 developers <orvex2-0@orvex.example>")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_COMPONENTS_ALL runtime dev simulator)
set(CPACK_COMPONENTS_GROUPING IGNORE)

set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)

set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME liborvex2-0-${PROJECT_VERSION_MAJOR})
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_EXTRA "${CMAKE_CURRENT_SOURCE_DIR}/triggers")
set(CPACK_COMPONENT_RUNTIME_DESCRIPTION
    "${PROJECT_DESCRIPTION}
A service process links it to offer its functions through the ORVEX Manager: it
registers opcodes, serves sessions, decodes and runs tasks, and answers.")

set(CPACK_DEBIAN_DEV_PACKAGE_NAME liborvex2-0-dev)
set(CPACK_DEBIAN_DEV_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEV_PACKAGE_DEPENDS
    "${CPACK_DEBIAN_RUNTIME_PACKAGE_NAME} (= ${PROJECT_VERSION}-${CPACK_DEBIAN_PACKAGE_RELEASE}), libjsoncpp-dev")
set(CPACK_COMPONENT_DEV_DESCRIPTION
    "${PROJECT_DESCRIPTION} (development files)
Headers, CMake package and pkg-config files for building services, and a static
library with a simulated Manager for their unit tests.")

set(CPACK_DEBIAN_SIMULATOR_PACKAGE_NAME orvd-sim)
set(CPACK_DEBIAN_SIMULATOR_PACKAGE_SECTION devel)
set(CPACK_COMPONENT_SIMULATOR_DESCRIPTION
    "simulator of the ORVEX Manager
Calls, watches, records and loads services of the ORVEX Manager: it takes the
Manager's place on a machine without a device, or stands between the two.")

# Each package contains the changelog and the copyright.
find_program(GZIP gzip)
set(CHANGELOG "${CMAKE_CURRENT_BINARY_DIR}/changelog.Debian.gz")
set(MANUAL_PAGE "${CMAKE_CURRENT_BINARY_DIR}/orvd-sim.1.gz")
function(compress file output)
  execute_process(COMMAND "${GZIP}" -9nc "${file}" OUTPUT_FILE "${output}" COMMAND_ERROR_IS_FATAL ANY)
endfunction()
if(GZIP)
  configure_file(changelog.in changelog @ONLY)
  compress("${CMAKE_CURRENT_BINARY_DIR}/changelog" "${CHANGELOG}")
  compress("${CMAKE_CURRENT_SOURCE_DIR}/orvd-sim.1" "${MANUAL_PAGE}")
  set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS orvd-sim.1)
endif()
# These files are for Debian packages only.
if(CMAKE_INSTALL_PREFIX STREQUAL "/usr")
  install(FILES "${MANUAL_PAGE}" DESTINATION "${CMAKE_INSTALL_MANDIR}/man1" COMPONENT simulator)
  # Debian's own packages that use the Android libraries do the same.
  install(
    FILES lintian-overrides
    DESTINATION share/lintian/overrides
    RENAME ${CPACK_DEBIAN_RUNTIME_PACKAGE_NAME}
    COMPONENT runtime)
  foreach(component IN ITEMS runtime dev simulator)
    string(TOUPPER ${component} upper)
    install(
      FILES copyright "${CHANGELOG}"
      DESTINATION "${DOC_DIR}/${CPACK_DEBIAN_${upper}_PACKAGE_NAME}"
      COMPONENT ${component})
  endforeach()
endif()

include(CPack)
