# Read by cpack before each form.
set(SHLIBDEPS_EXECUTABLE ${CPACK_TSLWNFS_SOURCE}/packaging/shlibdeps)

if(NOT CPACK_PACKAGE_CONTACT MATCHES "^.+ <.+@.+>$")
    message(FATAL_ERROR "The packages name who answers for them: -DTSLWNFS_MAINTAINER=\"NAME <ADDRESS>\"")
endif()

# The names that each distribution gives to such packages.
set(TSLWNFS_PACKAGES_DEB tslwnfs tslwnfs-dev tslwnfs-loopnfsd tslwnfs-dbgsym)
set(TSLWNFS_PACKAGES_RPM tslwnfs tslwnfs-devel tslwnfs-loopnfsd tslwnfs-debuginfo)
foreach(component package_deb package_rpm
        IN ZIP_LISTS CPACK_COMPONENTS_ALL TSLWNFS_PACKAGES_DEB TSLWNFS_PACKAGES_RPM)
    string(TOUPPER ${component} part)
    set(CPACK_DEBIAN_${part}_PACKAGE_NAME ${package_deb})
    set(CPACK_RPM_${part}_PACKAGE_NAME ${package_rpm})
endforeach()

# Each package has a description of its own, which begins with what it is.
unset(CPACK_PACKAGE_DESCRIPTION_SUMMARY)

# What belongs to one build, and the program that makes the group. What the modules of the home are linked with is needed
# by those alone who use them.
set(same_deb "(= ${CPACK_PACKAGE_VERSION}-${CPACK_DEBIAN_PACKAGE_RELEASE})")
set(CPACK_DEBIAN_RUNTIME_PACKAGE_DEPENDS passwd)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_RECOMMENDS "libgssapi-krb5-2, libssl3")
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS "tslwnfs ${same_deb}")
set(CPACK_DEBIAN_LOOPNFSD_PACKAGE_RECOMMENDS tslwnfs)
# What is in these was in tslwnfs once.
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_REPLACES tslwnfs)
set(CPACK_DEBIAN_LOOPNFSD_PACKAGE_REPLACES tslwnfs)
set(CPACK_DEBIAN_DEBUG_PACKAGE_DEPENDS "tslwnfs ${same_deb} | tslwnfs-loopnfsd ${same_deb}")
# cpack has no variable for what an RPM recommends.
set(CPACK_RPM_RUNTIME_PACKAGE_REQUIRES_POST "/usr/sbin/groupadd\nRecommends: krb5-libs, openssl-libs")
set(CPACK_RPM_DEVELOPMENT_PACKAGE_REQUIRES "tslwnfs = ${CPACK_PACKAGE_VERSION}-${CPACK_RPM_PACKAGE_RELEASE}")

# What is written for these packages; others may be made of the same build at the same time.
set(CPACK_TSLWNFS_WRITTEN ${CPACK_PACKAGE_DIRECTORY}/_CPack_Packages/written)

# The changelogs of both forms say who made this package, of which version, and when.
string(TIMESTAMP TSLWNFS_DATE_DEB "%a, %d %b %Y %H:%M:%S +0000" UTC)
string(TIMESTAMP TSLWNFS_DATE_RPM "%a %b %d %Y" UTC)
foreach(form deb rpm)
    configure_file(${CPACK_TSLWNFS_SOURCE}/packaging/${form}/changelog.in
        ${CPACK_TSLWNFS_WRITTEN}/changelog.${form} @ONLY)
endforeach()
set(CPACK_RPM_CHANGELOG_FILE ${CPACK_TSLWNFS_WRITTEN}/changelog.rpm)
