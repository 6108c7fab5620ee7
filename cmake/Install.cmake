# What `cmake --install` and the .deb packages put where. Four components, one per package:
#   runtime  libspreadsheet.so.0 and the automation server it loads  -> libspreadsheet0
#   dev      the public headers, the .so link, CMake package, .pc    -> libspreadsheet-dev
#   odbc     the .xls ODBC driver and its odbcinst template          -> odbc-xls
#   tools    sheet, its man page and bash completion                 -> spreadsheet-tools
# (odbc-driver/, excel-server/ and tools/sheet/ install their own targets into these.)
include(CMakePackageConfigHelpers)

install(TARGETS spreadsheet EXPORT spreadsheetTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_COMPONENT dev
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT dev
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT runtime)

# The public contract: the class and the MFC-compatible types its callers use, listed by
# hand so that a new internal header (a seam, a test hook) is never installed by accident.
# tests/tools/exports_test.sh checks the library's exports against this list.
set(SPREADSHEET_PUBLIC_HEADERS
  spreadsheet/SpreadSheet.h
  platform/Automation.h
  platform/AutomationTypes.h
  platform/CString.h
  platform/Database.h
  platform/Export.h
  platform/File.h
  platform/MessageBox.h
  platform/OdbcInstaller.h
  platform/WinTypes.h)
foreach(header ${SPREADSHEET_PUBLIC_HEADERS})
  get_filename_component(folder ${header} DIRECTORY)
  install(FILES ${PROJECT_SOURCE_DIR}/${header}
          DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/${folder} COMPONENT dev)
endforeach()
string(REPLACE ";" "\n" SPREADSHEET_PUBLIC_HEADER_LINES "${SPREADSHEET_PUBLIC_HEADERS}")
file(WRITE ${PROJECT_BINARY_DIR}/public-headers.txt "${SPREADSHEET_PUBLIC_HEADER_LINES}\n")

install(EXPORT spreadsheetTargets NAMESPACE spreadsheet::
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/spreadsheet COMPONENT dev)
configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/spreadsheetConfig.cmake.in
  ${PROJECT_BINARY_DIR}/spreadsheetConfig.cmake
  INSTALL_DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/spreadsheet)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/spreadsheetConfigVersion.cmake
  COMPATIBILITY SameMinorVersion)
install(FILES ${PROJECT_BINARY_DIR}/spreadsheetConfig.cmake
  ${PROJECT_BINARY_DIR}/spreadsheetConfigVersion.cmake
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/spreadsheet COMPONENT dev)

# The .pc file names its prefix relative to itself, so an install moved or made with
# `cmake --install --prefix` elsewhere still points at its own headers and library.
file(RELATIVE_PATH SPREADSHEET_PC_TO_PREFIX "/prefix/${CMAKE_INSTALL_LIBDIR}/pkgconfig" "/prefix")
string(REGEX REPLACE "/$" "" SPREADSHEET_PC_TO_PREFIX "${SPREADSHEET_PC_TO_PREFIX}")
configure_file(${PROJECT_SOURCE_DIR}/cmake/spreadsheet.pc.in
  ${PROJECT_BINARY_DIR}/spreadsheet.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/spreadsheet.pc
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT dev)

# Each package carries the license where Debian looks for it.
foreach(pair runtime:libspreadsheet0 dev:libspreadsheet-dev odbc:odbc-xls tools:spreadsheet-tools)
  string(REPLACE ":" ";" pair ${pair})
  list(GET pair 0 component)
  list(GET pair 1 package)
  install(FILES ${PROJECT_SOURCE_DIR}/LICENSE DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/${package}
          RENAME copyright COMPONENT ${component})
endforeach()
