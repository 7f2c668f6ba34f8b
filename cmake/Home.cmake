# What makes an installation home complete beyond the targets' own install rules.

install(FILES include/tdm.h DESTINATION include)
install(DIRECTORY DESTINATION dbs)
install(DIRECTORY DESTINATION rdbms/lib/tdm)
install(FILES man/tslwnfs.1 DESTINATION share/man/man1)
install(FILES man/tslnfstab.5 DESTINATION share/man/man5)
