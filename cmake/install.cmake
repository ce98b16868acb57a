# What `cmake --install` brings: programs with their pages, completion and units, and what firmware links. The
# components are daemon, store, tools and devel.
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

install(TARGETS horad RUNTIME DESTINATION ${CMAKE_INSTALL_SBINDIR} COMPONENT daemon)
set(components daemon)
if(NOT HORAD_DAEMON_ONLY)
    install(TARGETS cfgserver RUNTIME DESTINATION ${CMAKE_INSTALL_SBINDIR} COMPONENT store)
    install(TARGETS cfgctl horactl RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT tools)
    install(FILES ${PROJECT_SOURCE_DIR}/packaging/household.json DESTINATION ${CMAKE_INSTALL_DATADIR}/horad
        COMPONENT tools)
    list(APPEND components store tools)
endif()

# The component that a page, unit or completion belongs to, by the program that its name begins with.
function(horad_component_of file result)
    cmake_path(GET file FILENAME name)
    set(${result} "" PARENT_SCOPE)
    if(name MATCHES "^horad([.]|$)")
        set(${result} daemon PARENT_SCOPE)
    elseif(name MATCHES "^(cfgserver|horad-cluster)([.]|$)")
        set(${result} store PARENT_SCOPE)
    elseif(name MATCHES "^(cfgctl|horactl)([.]|$)")
        set(${result} tools PARENT_SCOPE)
    else()
        message(FATAL_ERROR "${file}: its name does not say which program it belongs to")
    endif()
endfunction()

# Installs the files whose programs are built. A file is renamed where its name has an END that RENAMED_TO replaces.
function(horad_install_files destination)
    cmake_parse_arguments(ARG "" "END;RENAMED_TO" "FILES" ${ARGN})
    foreach(file IN LISTS ARG_FILES)
        horad_component_of(${file} component)
        cmake_path(GET file FILENAME name)
        if(ARG_END)
            string(REGEX REPLACE "${ARG_END}$" "${ARG_RENAMED_TO}" name ${name})
        endif()
        if(component IN_LIST components)
            install(FILES ${file} DESTINATION ${destination} COMPONENT ${component} RENAME ${name})
        endif()
    endforeach()
endfunction()

foreach(section 1 5 7 8)
    file(GLOB pages CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/doc/man/*.${section})
    horad_install_files(${CMAKE_INSTALL_MANDIR}/man${section} FILES ${pages})
endforeach()
file(GLOB completions CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/packaging/completion/*)
horad_install_files(${CMAKE_INSTALL_DATADIR}/bash-completion/completions FILES ${completions})

# A unit names its program by its whole path. In the tree that is the one of the packages.
set(systemd ${PROJECT_SOURCE_DIR}/packaging/systemd)
file(GLOB units CONFIGURE_DEPENDS ${systemd}/*.service ${systemd}/*.socket)
foreach(unit IN LISTS units)
    cmake_path(GET unit FILENAME name)
    file(READ ${unit} text)
    string(REPLACE /usr/sbin/ ${CMAKE_INSTALL_FULL_SBINDIR}/ text "${text}")
    string(REPLACE /usr/lib/ ${CMAKE_INSTALL_PREFIX}/lib/ text "${text}")
    file(WRITE ${CMAKE_CURRENT_BINARY_DIR}/units/${name} "${text}")
    set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${unit})
    horad_install_files(lib/systemd/system FILES ${CMAKE_CURRENT_BINARY_DIR}/units/${name})
endforeach()
install(PROGRAMS ${PROJECT_SOURCE_DIR}/packaging/wait-for-clock DESTINATION lib/horad COMPONENT daemon)
if(NOT HORAD_DAEMON_ONLY)
    install(PROGRAMS ${PROJECT_SOURCE_DIR}/packaging/run-member DESTINATION lib/horad-cluster COMPONENT store)
endif()

foreach(kind sysusers tmpfiles)
    file(GLOB entries CONFIGURE_DEPENDS ${systemd}/*.${kind})
    horad_install_files(lib/${kind}.d FILES ${entries} END .${kind} RENAMED_TO .conf)
endforeach()

get_property(libraries GLOBAL PROPERTY HORAD_PUBLIC_LIBRARIES)
install(TARGETS ${libraries} EXPORT horad
    ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT devel
    FILE_SET HEADERS DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/horad COMPONENT devel
    INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/horad # for versions of CMake that know no file sets
)
set(platformTargets "")
if(HORAD_PLATFORM STREQUAL "external")
    install(TARGETS horad_velta horad_orv horad_client EXPORT horad)
    set(platformTargets ${HORAD_VELTA_TARGET} ${HORAD_ORV_TARGET} ${HORAD_CLIENT_TARGET})
endif()
if(CMAKE_INTERPROCEDURAL_OPTIMIZATION AND CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    foreach(library IN LISTS libraries)
        install(CODE "execute_process(COMMAND \"${CMAKE_OBJCOPY}\" --wildcard --enable-deterministic-archives
            --remove-section .gnu.lto_* --remove-section .gnu.debuglto_* --strip-symbol __gnu_lto_*
            \"\$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_LIBDIR}/lib${library}.a\" COMMAND_ERROR_IS_FATAL ANY)"
            COMPONENT devel)
    endforeach()
endif()

set(package ${CMAKE_INSTALL_LIBDIR}/cmake/horad)
configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/horadConfig.cmake.in horadConfig.cmake
    INSTALL_DESTINATION ${package} NO_SET_AND_CHECK_MACRO)
write_basic_package_version_file(horadConfigVersion.cmake COMPATIBILITY SameMinorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/horadConfig.cmake ${CMAKE_CURRENT_BINARY_DIR}/horadConfigVersion.cmake
    DESTINATION ${package} COMPONENT devel)
install(EXPORT horad FILE horadTargets.cmake NAMESPACE horad:: DESTINATION ${package} COMPONENT devel)
