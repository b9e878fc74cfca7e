# Builds for arm64 and runs under emulation: Debian's cross compiler, what Scripts/fetch-sysroot has
# unpacked, and qemu.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(CMAKE_LIBRARY_ARCHITECTURE aarch64-linux-gnu)
set(CMAKE_C_COMPILER aarch64-linux-gnu-gcc)
set(CMAKE_CXX_COMPILER aarch64-linux-gnu-g++)

set(TP_SYSROOT ${CMAKE_CURRENT_LIST_DIR}/../build/sysroot-arm64)
cmake_path(NORMAL_PATH TP_SYSROOT)
set(CMAKE_FIND_ROOT_PATH ${TP_SYSROOT})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
# The compiler's own libraries are where it comes from, the others in the sysroot.
set(folders ${TP_SYSROOT}/usr/lib/aarch64-linux-gnu)
list(APPEND folders ${folders}/blas ${folders}/lapack ${TP_SYSROOT}/lib/aarch64-linux-gnu)
list(JOIN folders ":" folders)
set(CMAKE_EXE_LINKER_FLAGS_INIT -Wl,-rpath-link,${folders})
set(CMAKE_SHARED_LINKER_FLAGS_INIT -Wl,-rpath-link,${folders})
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-aarch64-static -L /usr/aarch64-linux-gnu -E LD_LIBRARY_PATH=${folders})
