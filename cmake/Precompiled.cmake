# Most of what a source costs to compile is the standard library's headers (and GoogleTest's): the presets that are built
# again and again read them once. A forgotten #include would not show there; a build without a preset has no such header.
option(TSLWNFS_PRECOMPILE "Compile the headers of the standard library once" OFF)

set(PRECOMPILED_STANDARD <algorithm> <array> <cerrno> <chrono> <cstdint> <cstring> <functional> <map> <memory> <optional>
    <span> <string> <string_view> <unordered_map> <utility> <vector>)

# clang++ would refuse a result whose headers were installed anew since, as it may come out of a compiler cache.
if(TSLWNFS_PRECOMPILE AND CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
    add_compile_options("$<$<COMPILE_LANGUAGE:CXX>:SHELL:-Xclang -fno-pch-timestamp>")
endif()

# precompile(KIND TARGET HEADER...): the first target of a kind compiles the headers, the others of that kind, which are
# compiled with the same options, use its result.
function(precompile kind target)
    if(NOT TSLWNFS_PRECOMPILE)
        return()
    endif()
    get_property(first GLOBAL PROPERTY PRECOMPILED_${kind})
    if(first)
        target_precompile_headers(${target} REUSE_FROM ${first})
    else()
        target_precompile_headers(${target} PRIVATE ${ARGN})
        set_property(GLOBAL PROPERTY PRECOMPILED_${kind} ${target})
    endif()
endfunction()
