# What a developer gets in an installed copy: library, hook and headers, found by find_package(authchipdriver), which
# gives the targets authchipdriver::authchipdriver and authchipdriver::defaulthook, or by pkg-config.
include(CMakePackageConfigHelpers)

install(TARGETS authchipdriver EXPORT authchipdriver
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_COMPONENT development
    FILE_SET HEADERS DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT development
)
install(TARGETS authchipdriver_defaulthook EXPORT authchipdriver
    ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT development)

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

relative_install_path(prefix_from_pkgconfig ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
get_target_property(hook_symbol authchipdriver_defaulthook HOOK_SYMBOL)
foreach(module authchipdriver authchipdriver-defaulthook)
    configure_file(${CMAKE_CURRENT_LIST_DIR}/${module}.pc.in ${PROJECT_BINARY_DIR}/${module}.pc @ONLY)
    install(FILES ${PROJECT_BINARY_DIR}/${module}.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT development)
endforeach()
