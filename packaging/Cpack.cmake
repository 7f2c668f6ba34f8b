# Read by cpack before each generator.
set(SHLIBDEPS_EXECUTABLE ${CPACK_TSLWNFS_SOURCE}/packaging/shlibdeps)
