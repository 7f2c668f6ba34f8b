# What makes an installation home complete beyond the targets' own install rules.

install(FILES include/tdm.h DESTINATION include)
install(DIRECTORY DESTINATION dbs)
install(DIRECTORY DESTINATION rdbms/lib/tdm)

# How other projects find the storage library: pkg-config, and CMake's find_package(tdm), which gives tdm::tdm.
include(CMakePackageConfigHelpers)
configure_file(cmake/tdm.pc.in ${PROJECT_BINARY_DIR}/tdm.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/tdm.pc DESTINATION lib/pkgconfig)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/tdmConfigVersion.cmake COMPATIBILITY SameMinorVersion)
install(FILES ${PROJECT_BINARY_DIR}/tdmConfigVersion.cmake DESTINATION lib/cmake/tdm)
install(EXPORT tdm NAMESPACE tdm:: FILE tdmConfig.cmake DESTINATION lib/cmake/tdm)
