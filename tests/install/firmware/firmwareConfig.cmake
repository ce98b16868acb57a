# A firmware's package, whose targets have names of its own: velta and orv are built of the sources of this tree,
# FIRMWARE_SOURCES, the client is another one.
if(TARGET fw_velta)
    return()
endif()
file(GLOB sources ${FIRMWARE_SOURCES}/platform/orv/*.cpp)
add_library(fw_orv STATIC EXCLUDE_FROM_ALL ${sources})
file(GLOB_RECURSE sources ${FIRMWARE_SOURCES}/platform/velta/*.cpp)
add_library(fw_velta STATIC EXCLUDE_FROM_ALL ${sources})
add_library(fw_client INTERFACE)

target_include_directories(fw_orv PUBLIC ${FIRMWARE_SOURCES}/platform)
target_link_libraries(fw_velta PUBLIC fw_orv)
target_include_directories(fw_client INTERFACE ${CMAKE_CURRENT_LIST_DIR})
target_link_libraries(fw_client INTERFACE fw_velta horad::cfg)
target_compile_features(fw_orv PUBLIC cxx_std_17)
target_compile_features(fw_velta PUBLIC cxx_std_17)
