# Toolchain file: 32-bit ARM with hardware floating point, Debian's armhf, built on another machine and run there by qemu.
# Needs what `scripts/install_dependencies base tests arm` installs; its libraries are in the folder GLUE_ARM_SYSROOT.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR arm)

set(GLUE_ARM_SYSROOT ${CMAKE_CURRENT_LIST_DIR}/../build/arm_sysroot CACHE PATH "Where the target's packages are unpacked")
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES GLUE_ARM_SYSROOT)
file(REAL_PATH ${GLUE_ARM_SYSROOT} CMAKE_SYSROOT)

set(CMAKE_CXX_COMPILER arm-linux-gnueabihf-g++)
set(CMAKE_LIBRARY_ARCHITECTURE arm-linux-gnueabihf)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE BOTH) # the platform may be a package from elsewhere: CMAKE_PREFIX_PATH

# The build starts the target's programs, mainly the tests, with this.
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-arm -L ${CMAKE_SYSROOT})
