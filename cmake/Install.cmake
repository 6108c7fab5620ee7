# Installs libspreadsheet with its public headers, a CMake package
# (find_package(spreadsheet) -> spreadsheet::spreadsheet) and a pkg-config file.
include(CMakePackageConfigHelpers)

install(TARGETS spreadsheet EXPORT spreadsheetTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
install(FILES spreadsheet/SpreadSheet.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/spreadsheet)
file(GLOB PLATFORM_PUBLIC_HEADERS ${PROJECT_SOURCE_DIR}/platform/*.h)
install(FILES ${PLATFORM_PUBLIC_HEADERS} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/platform)

install(EXPORT spreadsheetTargets NAMESPACE spreadsheet::
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/spreadsheet)
configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/spreadsheetConfig.cmake.in
  ${PROJECT_BINARY_DIR}/spreadsheetConfig.cmake
  INSTALL_DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/spreadsheet)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/spreadsheetConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/spreadsheetConfig.cmake
  ${PROJECT_BINARY_DIR}/spreadsheetConfigVersion.cmake
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/spreadsheet)

# The .pc file names its prefix relative to itself, so an install moved or made with
# `cmake --install --prefix` elsewhere still points at its own headers and library.
file(RELATIVE_PATH SPREADSHEET_PC_TO_PREFIX "/prefix/${CMAKE_INSTALL_LIBDIR}/pkgconfig" "/prefix")
string(REGEX REPLACE "/$" "" SPREADSHEET_PC_TO_PREFIX "${SPREADSHEET_PC_TO_PREFIX}")
configure_file(${PROJECT_SOURCE_DIR}/cmake/spreadsheet.pc.in
  ${PROJECT_BINARY_DIR}/spreadsheet.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/spreadsheet.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
