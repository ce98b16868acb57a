# The router's processor: 32-bit big-endian MIPS. Programs run here under qemu-mips.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR mips)
set(CMAKE_C_COMPILER mips-linux-gnu-gcc)
set(CMAKE_CXX_COMPILER mips-linux-gnu-g++)
set(CMAKE_FIND_ROOT_PATH /usr/mips-linux-gnu)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-mips -L /usr/mips-linux-gnu)
# At a fixed address: code that finds its own is a tenth larger here, and the router has little flash.
set(CMAKE_CXX_FLAGS_INIT "-fno-pie -mno-shared")
# In one piece: code that is optimised in several finds the data of the others by detours.
set(CMAKE_EXE_LINKER_FLAGS_INIT "-no-pie -flto-partition=one")
