# Cross build for 64-bit Arm Linux with Debian's aarch64-linux-gnu toolchain,
# meant for -DFLAIRIZE_ENGINE_ONLY=ON. Programs link statically so qemu-aarch64
# runs them without an Arm loader or sysroot.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(CMAKE_C_COMPILER aarch64-linux-gnu-gcc)
set(CMAKE_CXX_COMPILER aarch64-linux-gnu-g++)
set(CMAKE_EXE_LINKER_FLAGS_INIT -static)
# pkg-config reads only the arm64 multiarch .pc files (nettle-dev:arm64).
set(ENV{PKG_CONFIG_LIBDIR} /usr/lib/aarch64-linux-gnu/pkgconfig:/usr/share/pkgconfig)
set(ENV{PKG_CONFIG_PATH} "")
# ctest runs the Arm programs under qemu.
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-aarch64)
