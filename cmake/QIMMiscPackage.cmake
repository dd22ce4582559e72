# Installation: the library, its headers, the CMake package QIMMisc (target
# QIMMisc::qimmisc) and a pkg-config file.
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

install(TARGETS qimmisc EXPORT QIMMiscTargets
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR}
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
  INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(DIRECTORY "${PROJECT_SOURCE_DIR}/include/qimmisc"
  DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})

set(QIMMISC_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/QIMMisc)
install(EXPORT QIMMiscTargets NAMESPACE QIMMisc:: DESTINATION ${QIMMISC_CMAKE_DIR})
configure_package_config_file(
  "${PROJECT_SOURCE_DIR}/cmake/QIMMiscConfig.cmake.in"
  "${PROJECT_BINARY_DIR}/QIMMiscConfig.cmake"
  INSTALL_DESTINATION ${QIMMISC_CMAKE_DIR})
write_basic_package_version_file("${PROJECT_BINARY_DIR}/QIMMiscConfigVersion.cmake"
  COMPATIBILITY SameMajorVersion)
install(FILES
  "${PROJECT_BINARY_DIR}/QIMMiscConfig.cmake"
  "${PROJECT_BINARY_DIR}/QIMMiscConfigVersion.cmake"
  "${PROJECT_SOURCE_DIR}/cmake/FindACE.cmake"
  DESTINATION ${QIMMISC_CMAKE_DIR})

file(RELATIVE_PATH QIMMISC_PC_TO_PREFIX
     "/${CMAKE_INSTALL_LIBDIR}/pkgconfig" "/")
configure_file("${PROJECT_SOURCE_DIR}/cmake/qimmisc.pc.in"
  "${PROJECT_BINARY_DIR}/qimmisc.pc" @ONLY)
install(FILES "${PROJECT_BINARY_DIR}/qimmisc.pc"
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
