# Read by cpack before each generator.
set(SHLIBDEPS_EXECUTABLE ${CPACK_TSLWNFS_SOURCE}/packaging/shlibdeps)

if(NOT CPACK_PACKAGE_CONTACT MATCHES "^.+ <.+@.+>$")
    message(FATAL_ERROR "The packages name who answers for them: -DTSLWNFS_MAINTAINER=\"NAME <ADDRESS>\"")
endif()

# The changelogs of both forms say who made this package, of which version, and when.
string(TIMESTAMP TSLWNFS_DATE_DEB "%a, %d %b %Y %H:%M:%S +0000" UTC)
string(TIMESTAMP TSLWNFS_DATE_RPM "%a %b %d %Y" UTC)
foreach(form deb rpm)
    configure_file(${CPACK_TSLWNFS_SOURCE}/packaging/${form}/changelog.in
        ${CPACK_TSLWNFS_CONFIGURED}/changelog.${form} @ONLY)
endforeach()
set(CPACK_RPM_CHANGELOG_FILE ${CPACK_TSLWNFS_CONFIGURED}/changelog.rpm)
