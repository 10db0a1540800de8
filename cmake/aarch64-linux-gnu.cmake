# Cross build for 64-bit Arm with Debian's aarch64-linux-gnu toolchain; the
# target libraries (liblog, GoogleTest) come from Debian's arm64 packages
# under /usr/lib/aarch64-linux-gnu. Executables run under qemu-aarch64.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(CMAKE_C_COMPILER aarch64-linux-gnu-gcc)
set(CMAKE_CXX_COMPILER aarch64-linux-gnu-g++)
set(CMAKE_LIBRARY_ARCHITECTURE aarch64-linux-gnu)
# The arm64 C library comes from Debian's multiarch packages (libc6:arm64), whose
# loader is /lib/ld-linux-aarch64.so.1; qemu needs no sysroot option for it.
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-aarch64)

# Headers are shared between architectures; libraries must be the arm64 ones.
set(CMAKE_FIND_ROOT_PATH /usr/aarch64-linux-gnu /usr)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE BOTH)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
