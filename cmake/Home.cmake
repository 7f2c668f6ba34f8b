# What makes an installation home complete beyond the targets' own install rules.

install(FILES include/tdm.h DESTINATION include COMPONENT development)
install(DIRECTORY DESTINATION dbs)
install(DIRECTORY DESTINATION rdbms/lib/tdm)

# How other projects find the storage library: pkg-config, and CMake's find_package(tdm), which gives tdm::tdm. The home
# may be moved: pkg-config is told where it is from where its file stands.
include(CMakePackageConfigHelpers)
set(TDM_PREFIX "\${pcfiledir}/../..")
configure_file(cmake/tdm.pc.in ${PROJECT_BINARY_DIR}/tdm.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/tdm.pc DESTINATION lib/pkgconfig COMPONENT development)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/tdmConfigVersion.cmake COMPATIBILITY SameMinorVersion)
install(FILES ${PROJECT_BINARY_DIR}/tdmConfigVersion.cmake DESTINATION lib/cmake/tdm COMPONENT development)
install(EXPORT tdm NAMESPACE tdm:: FILE tdmConfig.cmake DESTINATION lib/cmake/tdm COMPONENT development)
