# A firmware's package, whose targets have names of its own. They are built of this tree's sources, FIRMWARE_SOURCES, and
# the client of those in FIRMWARE_CLIENT.
if(TARGET fw_velta)
    return()
endif()
file(GLOB sources ${FIRMWARE_SOURCES}/platform/orv/*.cpp)
add_library(fw_orv STATIC EXCLUDE_FROM_ALL ${sources})
file(GLOB_RECURSE sources ${FIRMWARE_SOURCES}/platform/velta/*.cpp)
add_library(fw_velta STATIC EXCLUDE_FROM_ALL ${sources})
file(GLOB sources ${FIRMWARE_CLIENT}/cfg/*.cpp)
add_library(fw_client STATIC EXCLUDE_FROM_ALL ${sources})

target_include_directories(fw_orv PUBLIC ${FIRMWARE_SOURCES}/platform)
target_link_libraries(fw_velta PUBLIC fw_orv)
target_include_directories(fw_client PUBLIC ${FIRMWARE_CLIENT})
target_link_libraries(fw_client PUBLIC fw_velta horad::cfg)
foreach(target fw_orv fw_velta fw_client)
    target_compile_features(${target} PUBLIC cxx_std_17)
endforeach()
