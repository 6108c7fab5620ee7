# `cpack -G DEB` in a build configured with -DCMAKE_INSTALL_PREFIX=/usr makes one package
# per install component (see Install.cmake). Library depends come from dpkg-shlibdeps; the
# packages' depends on one another, and what is loaded at run time rather than linked
# (libodbcinst for the installed-driver list, odbcinst for the driver's registration),
# are named here.
set(CPACK_PACKAGE_NAME spreadsheet)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_VENDOR "the spreadsheet authors")
set(CPACK_PACKAGE_CONTACT "the spreadsheet authors <spreadsheet@localhost>")
set(CPACK_RESOURCE_FILE_LICENSE ${PROJECT_SOURCE_DIR}/LICENSE)
set(CPACK_PACKAGING_INSTALL_PREFIX ${CMAKE_INSTALL_PREFIX})
# The driver's odbcinst template is written at install time with the final prefix; under
# DESTDIR, CMAKE_INSTALL_PREFIX stays the packages' own (/usr), not the staging folder.
set(CPACK_SET_DESTDIR ON)

set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_ALL runtime dev odbc tools)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
# sheet links libspreadsheet.so.0 from the runtime package, not yet installed anywhere.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR})
set(CPACK_DEBIAN_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_PACKAGE_HOMEPAGE "https://localhost/spreadsheet")
set(CPACK_DEBIAN_PACKAGE_RELEASE 1)

set(exact "(= ${PROJECT_VERSION}-1)")
set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME libspreadsheet0)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_DEPENDS "libodbcinst2")
set(CPACK_DEBIAN_RUNTIME_PACKAGE_RECOMMENDS "odbc-xls")
set(CPACK_COMPONENT_RUNTIME_DESCRIPTION
  "CSpreadSheet: delimited text files and Excel 97-2003 workbooks\n The shared library and the in-process Excel.Application automation server.")

set(CPACK_DEBIAN_DEV_PACKAGE_NAME libspreadsheet-dev)
set(CPACK_DEBIAN_DEV_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEV_PACKAGE_DEPENDS "libspreadsheet0 ${exact}")
set(CPACK_DEBIAN_DEV_PACKAGE_RECOMMENDS "unixodbc-dev")
set(CPACK_COMPONENT_DEV_DESCRIPTION
  "CSpreadSheet: development files\n Public headers, the CMake package (find_package(spreadsheet)) and spreadsheet.pc.")

set(CPACK_DEBIAN_ODBC_PACKAGE_NAME odbc-xls)
set(CPACK_DEBIAN_ODBC_PACKAGE_SECTION database)
set(CPACK_DEBIAN_ODBC_PACKAGE_DEPENDS "odbcinst")
set(CPACK_DEBIAN_ODBC_PACKAGE_RECOMMENDS "unixodbc")
set(CPACK_COMPONENT_ODBC_DESCRIPTION
  "ODBC driver for Excel workbooks (.xls, .xlsx, .xlsm)\n Registered with unixODBC on installation as Excel Workbook Driver (*.xls, *.xlsx, *.xlsm),\n and under its earlier name Excel Workbook Driver (*.xls) for data sources that use it.")
configure_file(${PROJECT_SOURCE_DIR}/cmake/deb/odbc-xls.postinst.in
  ${PROJECT_BINARY_DIR}/deb/odbc-xls/postinst @ONLY FILE_PERMISSIONS OWNER_READ OWNER_WRITE
  OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
configure_file(${PROJECT_SOURCE_DIR}/cmake/deb/odbc-xls.prerm.in
  ${PROJECT_BINARY_DIR}/deb/odbc-xls/prerm @ONLY FILE_PERMISSIONS OWNER_READ OWNER_WRITE
  OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CPACK_DEBIAN_ODBC_PACKAGE_CONTROL_EXTRA
  ${PROJECT_BINARY_DIR}/deb/odbc-xls/postinst ${PROJECT_BINARY_DIR}/deb/odbc-xls/prerm)
set(CPACK_DEBIAN_ODBC_PACKAGE_CONTROL_STRICT_PERMISSION ON)

set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME spreadsheet-tools)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION utils)
set(CPACK_DEBIAN_TOOLS_PACKAGE_DEPENDS "libspreadsheet0 ${exact}")
set(CPACK_DEBIAN_TOOLS_PACKAGE_RECOMMENDS "odbc-xls")
set(CPACK_COMPONENT_TOOLS_DESCRIPTION
  "sheet: read and edit delimited text files and .xls workbooks from the shell")

include(CPack)
