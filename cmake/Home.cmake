# What makes an installation home complete beyond the targets' own install rules.

install(FILES include/tdm.h DESTINATION include)
install(DIRECTORY DESTINATION dbs)
install(DIRECTORY DESTINATION rdbms/lib/tdm)
