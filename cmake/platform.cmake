# Whose platform horad is built on: that of this tree, or the firmware's own (doc/porting.md).
set(HORAD_PLATFORM own CACHE STRING "own: the platform of this tree; external: the firmware's")
set_property(CACHE HORAD_PLATFORM PROPERTY STRINGS own external)
if(NOT HORAD_PLATFORM MATCHES "^(own|external)$")
    message(FATAL_ERROR "HORAD_PLATFORM=${HORAD_PLATFORM}: it is either own or external")
endif()

set(HORAD_VELTA_TARGET "" CACHE STRING "external platform: the target that supplies velta")
set(HORAD_ORV_TARGET "" CACHE STRING "external platform: the target that supplies orv")
set(HORAD_CLIENT_TARGET "" CACHE STRING "external platform: the target that supplies the client of the store")
set(HORAD_PLATFORM_PACKAGES "" CACHE STRING "external platform: the CMake packages that bring these targets")

if(HORAD_PLATFORM STREQUAL "external")
    foreach(package IN LISTS HORAD_PLATFORM_PACKAGES)
        find_package(${package} REQUIRED)
    endforeach()
endif()

# horad_NAME becomes another name of the target that the variable names.
function(horad_external_library name variable)
    set(target ${${variable}})
    if(NOT target)
        message(FATAL_ERROR "HORAD_PLATFORM=external: ${variable} has to name the target that supplies horad::${name}")
    elseif(NOT TARGET ${target})
        message(FATAL_ERROR "${variable}=${target}: there is no such target. It has to be defined before horad is"
            " added, or to come with a package that HORAD_PLATFORM_PACKAGES names")
    endif()
    add_library(horad_${name} INTERFACE)
    add_library(horad::${name} ALIAS horad_${name})
    set_target_properties(horad_${name} PROPERTIES EXPORT_NAME ${name})
    # The installed package names the target itself: it may be of no package that CMake knows here.
    target_link_libraries(horad_${name} INTERFACE $<BUILD_INTERFACE:${target}>)
endfunction()
