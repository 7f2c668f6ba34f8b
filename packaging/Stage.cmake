# Run by cpack in the staging folder, where each part of the home stands in a folder of its own: puts what makes the home
# reachable into /usr, takes the debug information apart, and gives all of it the form that the distribution expects.
cmake_minimum_required(VERSION 3.20)

set(home ${CPACK_PACKAGING_INSTALL_PREFIX})
set(packaging ${CPACK_TSLWNFS_SOURCE}/packaging)
set(configured ${CPACK_TSLWNFS_CONFIGURED})
set(written ${CPACK_TSLWNFS_WRITTEN})

# What is put in place from here on goes into the package of this part.
macro(enter component)
    set(root ${CPACK_TEMPORARY_DIRECTORY}/${component})
    set(ENV{DESTDIR} ${root}) # of file(INSTALL)
    string(TOUPPER ${component} part)
    if(CPACK_GENERATOR STREQUAL "DEB")
        set(package ${CPACK_DEBIAN_${part}_PACKAGE_NAME})
    else()
        set(package ${CPACK_RPM_${part}_PACKAGE_NAME})
    endif()
endmacro()

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

# What every package tells of itself.
function(add_legal_texts)
    if(CPACK_GENERATOR STREQUAL "DEB")
        set(documents /usr/share/doc/${package})
        file(INSTALL DESTINATION ${documents} TYPE FILE FILES ${packaging}/deb/copyright)
        add_compressed(${written}/changelog.deb ${documents} changelog.Debian)
    else()
        file(INSTALL DESTINATION /usr/share/licenses/${package} TYPE FILE FILES ${CPACK_TSLWNFS_SOURCE}/LICENSE)
    endif()
endfunction()

function(add_lintian_overrides)
    if(CPACK_GENERATOR STREQUAL "DEB")
        file(READ ${packaging}/deb/lintian-overrides text)
        string(REPLACE "/doc/tslwnfs/" "/doc/${package}/" text "${text}")
        file(WRITE ${written}/lintian-overrides "${text}")
        file(INSTALL DESTINATION /usr/share/lintian/overrides TYPE FILE
            FILES ${written}/lintian-overrides RENAME ${package})
    endif()
endfunction()

# What changed, with the version of the package and its date in place of what stands there while it is worked on.
function(add_history)
    set(changelog ${written}/CHANGELOG.md)
    string(TIMESTAMP today "%Y-%m-%d" UTC)
    file(READ ${CPACK_TSLWNFS_SOURCE}/CHANGELOG.md text)
    string(REPLACE "## Unreleased" "## ${CPACK_PACKAGE_VERSION} - ${today}" text "${text}")
    file(WRITE ${changelog} "${text}")
    if(CPACK_GENERATOR STREQUAL "DEB")
        add_compressed(${changelog} /usr/share/doc/tslwnfs changelog)
    else()
        file(INSTALL DESTINATION /usr/share/doc/tslwnfs TYPE FILE FILES ${changelog})
    endif()
endfunction()

# What there is to read, with the folders that its links lead to.
function(add_documents)
    file(INSTALL DESTINATION /usr/share/doc/tslwnfs TYPE FILE FILES ${CPACK_TSLWNFS_SOURCE}/README.md)
    file(INSTALL DESTINATION /usr/share/doc/tslwnfs TYPE DIRECTORY
        FILES ${CPACK_TSLWNFS_SOURCE}/docs ${CPACK_TSLWNFS_SOURCE}/examples)
endfunction()

function(add_manual_pages)
    file(GLOB pages RELATIVE ${root}${home} ${root}${home}/share/man/man*/*)
    foreach(page ${pages})
        compress(${root}${home}/${page})
        add_link(${home}/${page}.gz /usr/${page}.gz)
    endforeach()
endfunction()

function(add_completions)
    set(bash share/bash-completion/completions/tslwnfs)
    add_link(${home}/${bash} /usr/${bash})
    if(CPACK_GENERATOR STREQUAL "DEB")
        set(zsh vendor-completions)
    else()
        set(zsh site-functions)
    endif()
    add_link(${home}/share/zsh/site-functions/_tslwnfs /usr/share/zsh/${zsh}/_tslwnfs)
endfunction()

# CMake looks for tdm in /usr, too, and is sent on to the home.
function(add_cmake_package)
    foreach(file tdmConfig.cmake tdmConfigVersion.cmake)
        file(WRITE ${written}/${file} "include(${home}/lib/cmake/tdm/${file})\n")
        file(INSTALL DESTINATION /usr/share/cmake/tdm TYPE FILE FILES ${written}/${file})
    endforeach()
endfunction()

# Moves the debug information of a program or library of this package into the current one, where debuggers look for it.
function(take_debug_information program)
    execute_process(COMMAND ${CPACK_TSLWNFS_READELF} --notes ${program} OUTPUT_VARIABLE notes COMMAND_ERROR_IS_FATAL ANY)
    if(NOT notes MATCHES "Build ID: ([0-9a-f][0-9a-f])([0-9a-f]+)")
        message(FATAL_ERROR "${program} has no build id")
    endif()
    set(directory /usr/lib/debug/.build-id/${CMAKE_MATCH_1})
    set(file ${root}${directory}/${CMAKE_MATCH_2}.debug)
    file(INSTALL DESTINATION ${directory} TYPE DIRECTORY FILES "")
    execute_process(COMMAND ${CPACK_TSLWNFS_OBJCOPY} --only-keep-debug ${program} ${file} COMMAND_ERROR_IS_FATAL ANY)
    file(CHMOD ${file} PERMISSIONS OWNER_READ OWNER_WRITE GROUP_READ WORLD_READ)
    execute_process(COMMAND ${CPACK_TSLWNFS_STRIP} ${program} COMMAND_ERROR_IS_FATAL ANY)
endfunction()

enter(runtime)
file(INSTALL DESTINATION /usr/bin TYPE PROGRAM FILES ${configured}/tslwnfs)
add_legal_texts()
add_history()
add_documents()
add_manual_pages()
add_completions()
add_lintian_overrides()

enter(development)
file(INSTALL DESTINATION /usr/share/pkgconfig TYPE FILE FILES ${configured}/tdm.pc)
add_cmake_package()
add_manual_pages()
if(CPACK_GENERATOR STREQUAL "DEB")
    add_link(tslwnfs /usr/share/doc/${package})
endif()
add_lintian_overrides()

enter(loopnfsd)
add_link(${home}/bin/loopnfsd /usr/bin/loopnfsd)
add_legal_texts()
add_manual_pages()
add_lintian_overrides()

enter(debug)
file(REMOVE_RECURSE ${root}/opt) # the home, of which nothing is in here
foreach(component runtime loopnfsd)
    set(stage ${CPACK_TEMPORARY_DIRECTORY}/${component}${home})
    file(GLOB programs ${stage}/bin/* ${stage}/lib/*.so)
    foreach(program ${programs})
        take_debug_information(${program})
    endforeach()
endforeach()
add_legal_texts()
add_lintian_overrides()

# The builder's umask has no say in what others may enter.
file(GLOB_RECURSE directories LIST_DIRECTORIES true ${CPACK_TEMPORARY_DIRECTORY}/*)
foreach(directory ${directories})
    if(IS_DIRECTORY ${directory})
        file(CHMOD ${directory} PERMISSIONS
            OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
    endif()
endforeach()
