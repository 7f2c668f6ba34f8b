# Run by cpack in the staging folder, where the home is complete: puts what makes the home reachable into /usr, and
# gives both the form that the distribution expects.
cmake_minimum_required(VERSION 3.20)

set(root ${CPACK_TEMPORARY_DIRECTORY})
set(ENV{DESTDIR} ${root}) # of file(INSTALL)
set(home ${CPACK_PACKAGING_INSTALL_PREFIX})
set(packaging ${CPACK_TSLWNFS_SOURCE}/packaging)

# Puts a link into the package, and the directories above it.
function(add_link target name)
    cmake_path(GET name PARENT_PATH directory)
    file(INSTALL DESTINATION ${directory} TYPE DIRECTORY FILES "")
    file(CREATE_LINK ${target} ${root}${name} SYMBOLIC)
endfunction()

# Compresses a file, without its name and time: the result depends on the content alone.
function(compress file)
    execute_process(COMMAND gzip -9nf ${file} COMMAND_ERROR_IS_FATAL ANY)
endfunction()

function(add_compressed source directory name)
    file(INSTALL DESTINATION ${directory} TYPE FILE FILES ${source} RENAME ${name})
    compress(${root}${directory}/${name})
endfunction()

# What there is to read, with the folders that its links lead to.
function(add_documents directory)
    file(INSTALL DESTINATION ${directory} TYPE FILE FILES ${CPACK_TSLWNFS_SOURCE}/README.md)
    file(INSTALL DESTINATION ${directory} TYPE DIRECTORY
        FILES ${CPACK_TSLWNFS_SOURCE}/docs ${CPACK_TSLWNFS_SOURCE}/examples)
endfunction()

# What changed, with the version of the package and its date in place of what stands there while it is worked on.
set(changelog ${CPACK_TSLWNFS_CONFIGURED}/CHANGELOG.md)
string(TIMESTAMP today "%Y-%m-%d" UTC)
file(READ ${CPACK_TSLWNFS_SOURCE}/CHANGELOG.md text)
string(REPLACE "## Unreleased" "## ${CPACK_PACKAGE_VERSION} - ${today}" text "${text}")
file(WRITE ${changelog} "${text}")

file(INSTALL DESTINATION /usr/bin TYPE PROGRAM FILES ${CPACK_TSLWNFS_CONFIGURED}/tslwnfs)
add_link(${home}/bin/loopnfsd /usr/bin/loopnfsd)

file(GLOB pages RELATIVE ${root}${home} ${root}${home}/share/man/man*/*)
foreach(page ${pages})
    compress(${root}${home}/${page})
    add_link(${home}/${page}.gz /usr/${page}.gz)
endforeach()

set(bash_completion share/bash-completion/completions/tslwnfs)
add_link(${home}/${bash_completion} /usr/${bash_completion})

if(CPACK_GENERATOR STREQUAL "DEB")
    add_link(${home}/share/zsh/site-functions/_tslwnfs /usr/share/zsh/vendor-completions/_tslwnfs)
    set(documents /usr/share/doc/tslwnfs)
    file(INSTALL DESTINATION ${documents} TYPE FILE FILES ${packaging}/deb/copyright)
    add_compressed(${CPACK_TSLWNFS_CONFIGURED}/changelog.deb ${documents} changelog.Debian)
    add_compressed(${changelog} ${documents} changelog)
    add_documents(${documents})
    file(INSTALL DESTINATION /usr/share/lintian/overrides TYPE FILE
        FILES ${packaging}/deb/lintian-overrides RENAME tslwnfs)
else()
    add_link(${home}/share/zsh/site-functions/_tslwnfs /usr/share/zsh/site-functions/_tslwnfs)
    file(INSTALL DESTINATION /usr/share/doc/tslwnfs TYPE FILE FILES ${changelog})
    add_documents(/usr/share/doc/tslwnfs)
    file(INSTALL DESTINATION /usr/share/licenses/tslwnfs TYPE FILE FILES ${CPACK_TSLWNFS_SOURCE}/LICENSE)
endif()

# The builder's umask has no say in what others may enter.
file(GLOB_RECURSE directories LIST_DIRECTORIES true ${root}/*)
foreach(directory ${directories})
    if(IS_DIRECTORY ${directory})
        file(CHMOD ${directory} PERMISSIONS
            OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
    endif()
endforeach()
