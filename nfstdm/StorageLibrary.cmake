# The storage library. Its C face is all that it exports.

# add_storage_library(TARGET SONAME): the library, with a name for those who are linked with it.
function(add_storage_library target soname)
    add_library(${target} SHARED tdm/volume_factory.cpp $<TARGET_OBJECTS:tdmface>)
    target_link_libraries(${target} PRIVATE nfsfiles nfsproto)
    target_link_options(${target} PRIVATE
        ${TSLWNFS_STATIC_RUNTIME}
        -Wl,--exclude-libs,ALL
        -Wl,--version-script=${CMAKE_CURRENT_SOURCE_DIR}/tdm/libnfstdm.map
        -Wl,-soname,${soname}
    )
    set_target_properties(${target} PROPERTIES
        OUTPUT_NAME nfstdm
        NO_SONAME ON # but for the one above
        LINK_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/tdm/libnfstdm.map)
endfunction()

# Programs are linked with a version of the interface: a library of another one does not start them. It is the number
# that they give to tdm_discover.
set(header ${PROJECT_SOURCE_DIR}/include/tdm.h)
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${header})
file(STRINGS ${header} version REGEX "TDM_INTERFACE_VERSION = [0-9]+")
string(REGEX REPLACE "[^0-9]" "" TDM_INTERFACE_VERSION "${version}")
if(TDM_INTERFACE_VERSION STREQUAL "")
    message(FATAL_ERROR "${header} tells no TDM_INTERFACE_VERSION")
endif()
set(soname libnfstdm.so.${TDM_INTERFACE_VERSION})
set(TDM_INTERFACE_VERSION ${TDM_INTERFACE_VERSION} PARENT_SCOPE)

# The home is found by the name without a number: that is the file, and the other one a link to it.
add_storage_library(nfstdm ${soname})
add_custom_command(TARGET nfstdm POST_BUILD
    COMMAND ${CMAKE_COMMAND} -E create_symlink libnfstdm.so ${CMAKE_CURRENT_BINARY_DIR}/${soname} VERBATIM)
# The name under which other CMake projects find it is that of its header: tdm::tdm.
set_target_properties(nfstdm PROPERTIES EXPORT_NAME tdm)
install(TARGETS nfstdm EXPORT tdm LIBRARY DESTINATION lib INCLUDES DESTINATION include)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/${soname} DESTINATION lib)

# The utility is linked with a twin, for it asks for libnfstdm.so, whatever its version: any library of the interface, put
# in front by LD_LIBRARY_PATH, may take the place of the home's, and most have that name alone.
add_storage_library(nfstdm_by_name libnfstdm.so)
set_target_properties(nfstdm_by_name PROPERTIES LIBRARY_OUTPUT_DIRECTORY ${CMAKE_CURRENT_BINARY_DIR}/by_name)
