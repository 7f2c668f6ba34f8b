# Warnings, sanitizers and what every target is compiled and linked with. Warnings are errors in the presets only: another
# compiler, or another level of optimisation, finds others, and whoever builds a package can do nothing about them.

add_compile_options(-Wall -Wextra -Wshadow -Wvla)
add_compile_options($<$<COMPILE_LANGUAGE:CXX>:-Wnon-virtual-dtor>)
add_compile_definitions(_FILE_OFFSET_BITS=64 TSLWNFS_VERSION="${PROJECT_VERSION}")
include_directories(${PROJECT_SOURCE_DIR} ${PROJECT_SOURCE_DIR}/include)

# Programs that can be loaded anywhere are linked so, too.
include(CheckPIESupported)
check_pie_supported(LANGUAGES C CXX)

if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
    add_compile_options(-Wreserved-identifier)
endif()
if(TSLWNFS_ASSERTIONS OR TSLWNFS_SANITIZE)
    add_compile_options(-UNDEBUG)
endif()
if(TSLWNFS_SANITIZE)
    add_compile_options(-fsanitize=address,undefined -fno-sanitize-recover=all -fno-omit-frame-pointer)
    add_link_options(-fsanitize=address,undefined)
else()
    # What ships needs the C library only, so that the storage library can be loaded into any process.
    # What nobody calls is left out: parts of the C++ library ask for versions of the C library that nothing here needs.
    set(TSLWNFS_STATIC_RUNTIME -static-libstdc++ -static-libgcc -Wl,--gc-sections)
    # What reads from the network ends rather than go on with a damaged stack, and its tables of addresses are read-only.
    add_compile_options(-fstack-protector-strong)
    if(NOT "${CMAKE_C_FLAGS} ${CMAKE_CXX_FLAGS}" MATCHES _FORTIFY_SOURCE) # a packager's own level counts
        add_compile_options($<$<CONFIG:RelWithDebInfo,Release>:-D_FORTIFY_SOURCE=2>)
    endif()
    add_link_options(-Wl,-z,relro,-z,now)
    # The same sources make the same bytes wherever they stand, and what ships names no folder of the machine that built
    # it. A debugger that is started in the tree finds the sources.
    add_compile_options("$<$<NOT:$<CONFIG:Debug>>:-ffile-prefix-map=${PROJECT_SOURCE_DIR}=.>")
    add_compile_options("$<$<NOT:$<CONFIG:Debug>>:-ffile-prefix-map=${PROJECT_BINARY_DIR}=./build>")
    # By which a debugger finds the separate debug information of the packages.
    add_link_options(-Wl,--build-id=sha1)
endif()
if(TSLWNFS_FUZZ)
    # What the fuzzers steer by is compiled into everything they reach.
    add_compile_options(-fsanitize=fuzzer-no-link)
endif()
add_link_options(-Wl,--as-needed)
