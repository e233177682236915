# Cross-build for arm64 (the headset's architecture) with Debian's aarch64-linux-gnu toolchain.
# Libraries come from Debian multiarch (the :arm64 packages under /usr/lib/aarch64-linux-gnu,
# headers shared under /usr/include); the compiler brings its own C and C++ runtimes to link
# against under /usr/aarch64-linux-gnu.
#
# Executables built here (tests, the reference host, helpers) run through qemu-user: CTest and
# gtest discovery prefix them with CMAKE_CROSSCOMPILING_EMULATOR. Nothing relies on binfmt_misc.
# At run time the arm64 programs use the multiarch loader and libraries (libc6:arm64 and
# friends), all from one build of glibc. The emulator's -L prefix is therefore not the cross
# sysroot: its loader is a different glibc build than the multiarch libc.so.6 it would then load,
# and forked children hang on that mix. The prefix holds only the arm64 files whose paths are
# taken by native ones (scripts/setup.sh fills it); qemu looks there first for every absolute
# path the arm64 program opens.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(CMAKE_LIBRARY_ARCHITECTURE aarch64-linux-gnu)

set(CMAKE_C_COMPILER aarch64-linux-gnu-gcc)
set(CMAKE_CXX_COMPILER aarch64-linux-gnu-g++)
set(PKG_CONFIG_EXECUTABLE aarch64-linux-gnu-pkg-config)

set(VISTREL_ARM64_PREFIX /usr/local/lib/vistrel-arm64-prefix)
find_program(VISTREL_QEMU_AARCH64 qemu-aarch64 REQUIRED)
set(CMAKE_CROSSCOMPILING_EMULATOR ${VISTREL_QEMU_AARCH64} -L ${VISTREL_ARM64_PREFIX})

# libutils needs libbacktrace, which needs the 7-Zip plugin 7z.so from its run path
# /usr/lib/p7zip. That path holds the native plugin; the arm64 one sits at the same path under
# the prefix, and the linker resolves the indirect dependency there.
set(_vistrel_arm64_plugin_dir ${VISTREL_ARM64_PREFIX}/usr/lib/p7zip)
if(NOT EXISTS ${_vistrel_arm64_plugin_dir}/7z.so)
  message(FATAL_ERROR "${_vistrel_arm64_plugin_dir}/7z.so is missing: run scripts/setup.sh")
endif()
set(CMAKE_EXE_LINKER_FLAGS_INIT "-Wl,-rpath-link,${_vistrel_arm64_plugin_dir}")
set(CMAKE_SHARED_LINKER_FLAGS_INIT "-Wl,-rpath-link,${_vistrel_arm64_plugin_dir}")

# Tools run on the build machine; libraries and packages must be arm64 builds.
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
