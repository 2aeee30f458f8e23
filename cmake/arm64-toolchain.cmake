# Cross-builds for the device's processor with Debian's compiler, and runs the programs in an emulator.
# cmake/arm64_sysroot.sh creates the folder ORVEX_ARM64_SYSROOT, which has Debian's arm64 packages.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(CMAKE_LIBRARY_ARCHITECTURE aarch64-linux-gnu)
set(CMAKE_CXX_COMPILER aarch64-linux-gnu-g++)

set(ORVEX_ARM64_SYSROOT "" CACHE PATH "Debian's arm64 packages, unpacked")
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES ORVEX_ARM64_SYSROOT)
if(NOT EXISTS "${ORVEX_ARM64_SYSROOT}/packages")
  message(FATAL_ERROR "No arm64 packages in '${ORVEX_ARM64_SYSROOT}'; ./dev arm64 fetches them")
endif()

# The compiler has the C library's headers. CMake searches all other packages in the sysroot only.
set(CMAKE_FIND_ROOT_PATH "${ORVEX_ARM64_SYSROOT}")
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
foreach(kind LIBRARY INCLUDE PACKAGE)
  set(CMAKE_FIND_ROOT_PATH_MODE_${kind} ONLY)
endforeach()

set(CMAKE_CROSSCOMPILING_EMULATOR qemu-aarch64 -L "${ORVEX_ARM64_SYSROOT}")
