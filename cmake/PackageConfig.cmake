# What find_package(authchipdriver) finds in an installed copy: the target authchipdriver::authchipdriver.
include(CMakePackageConfigHelpers)

set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/authchipdriver)
configure_package_config_file(
    ${CMAKE_CURRENT_LIST_DIR}/authchipdriverConfig.cmake.in ${PROJECT_BINARY_DIR}/authchipdriverConfig.cmake
    INSTALL_DESTINATION ${package_dir})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/authchipdriverConfigVersion.cmake COMPATIBILITY SameMajorVersion)

install(EXPORT authchipdriver NAMESPACE authchipdriver:: FILE authchipdriverTargets.cmake
    DESTINATION ${package_dir} COMPONENT development)
install(FILES
    ${PROJECT_BINARY_DIR}/authchipdriverConfig.cmake
    ${PROJECT_BINARY_DIR}/authchipdriverConfigVersion.cmake
    DESTINATION ${package_dir} COMPONENT development)
