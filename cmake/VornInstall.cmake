# VornInstall.cmake - what "cmake --install" puts where: the module with the DLLs it needs, the import library
# and the .def file, the headers, the tools, and the files by which CMake and pkg-config find all of it.

include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

install(TARGETS vorn EXPORT vornTargets
    RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR}
    ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR})
install(DIRECTORY include/vorn DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(FILES ${CMAKE_BINARY_DIR}/lib/vorn_1_0.def DESTINATION ${CMAKE_INSTALL_LIBDIR})
foreach(dll IN LISTS VORN_RUNTIME_DLLS)
    file(REAL_PATH ${dll} realDll)
    get_filename_component(name ${dll} NAME)
    install(FILES ${realDll} RENAME ${name} DESTINATION ${CMAKE_INSTALL_BINDIR})
endforeach()

install(EXPORT vornTargets NAMESPACE vorn:: DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/vorn)
configure_package_config_file(cmake/vornConfig.cmake.in ${CMAKE_BINARY_DIR}/vornConfig.cmake
    INSTALL_DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/vorn)
write_basic_package_version_file(${CMAKE_BINARY_DIR}/vornConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_BINARY_DIR}/vornConfig.cmake ${CMAKE_BINARY_DIR}/vornConfigVersion.cmake
    DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/vorn)
configure_file(cmake/vorn.pc.in ${CMAKE_BINARY_DIR}/vorn.pc @ONLY)
install(FILES ${CMAKE_BINARY_DIR}/vorn.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
