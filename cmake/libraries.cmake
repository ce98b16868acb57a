# How our libraries are made. Each target is called horad_NAME, since an outer project has names of its own, and
# whoever links it from outside calls it horad::NAME.
function(horad_library target)
    string(REPLACE horad_ "" name ${target})
    add_library(${target} STATIC ${ARGN})
    add_library(horad::${name} ALIAS ${target})
    set_target_properties(${target} PROPERTIES EXPORT_NAME ${name})
    target_compile_features(${target} PUBLIC cxx_std_17)
    if(HORAD_FUZZ) # what a fuzzer has to get through, not the fuzzer itself
        target_compile_options(${target} PRIVATE -fsanitize=fuzzer-no-link)
    endif()
endfunction()

# The headers of a library that firmware may link. Includes name them from ROOT, a folder of this tree. They are
# installed with the library.
function(horad_public target)
    cmake_parse_arguments(ARG "" "ROOT" "HEADERS" ${ARGN})
    target_sources(${target} PUBLIC FILE_SET HEADERS BASE_DIRS ${PROJECT_SOURCE_DIR}/${ARG_ROOT} FILES ${ARG_HEADERS})
    # Times in the headers have 64 bits for whoever includes them, too.
    target_compile_definitions(${target} INTERFACE _FILE_OFFSET_BITS=64 _TIME_BITS=64)
    set_property(GLOBAL APPEND PROPERTY HORAD_PUBLIC_LIBRARIES ${target})
    if(CMAKE_INTERPROCEDURAL_OPTIMIZATION AND HORAD_INSTALL)
        # Our programs are optimised as a whole, but the archive has to suit other compilers too. It gets code
        # of both kinds, and is installed without that of the first (install.cmake).
        if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
            target_compile_options(${target} PRIVATE -ffat-lto-objects)
        else()
            set_target_properties(${target} PROPERTIES INTERPROCEDURAL_OPTIMIZATION OFF)
        endif()
    endif()
endfunction()

# The include roots, for programs of ours that look into more than what they link: tests and benchmarks.
set(HORAD_INCLUDE_ROOTS ${PROJECT_SOURCE_DIR}/src ${PROJECT_SOURCE_DIR}/platform)
