// Host stand-in for bionic's <android/dlext.h>: the extended dynamic-loader entry point and its
// extension record, with the types and flag values bionic declares. Linker namespaces do not
// exist on glibc, so android_dlopen_ext (platform/src/DlExt.cc) checks the record as bionic does
// and then opens the library with plain dlopen.
#pragma once

#include <stddef.h>
#include <stdint.h>
#include <sys/types.h>

#ifdef __cplusplus
extern "C" {
#endif

// Opaque: the definition is private to the linker.
struct android_namespace_t;

enum {
    ANDROID_DLEXT_RESERVED_ADDRESS = 0x1,
    ANDROID_DLEXT_RESERVED_ADDRESS_HINT = 0x2,
    ANDROID_DLEXT_WRITE_RELRO = 0x4,
    ANDROID_DLEXT_USE_RELRO = 0x8,
    ANDROID_DLEXT_USE_LIBRARY_FD = 0x10,
    ANDROID_DLEXT_USE_LIBRARY_FD_OFFSET = 0x20,
    ANDROID_DLEXT_FORCE_LOAD = 0x40,
    ANDROID_DLEXT_FORCE_FIXED_VADDR = 0x80,
    ANDROID_DLEXT_LOAD_AT_FIXED_ADDRESS = 0x100,
    ANDROID_DLEXT_USE_NAMESPACE = 0x200,
    ANDROID_DLEXT_RESERVED_ADDRESS_RECURSIVE = 0x400,
    ANDROID_DLEXT_VALID_FLAG_BITS = 0x7ff,
};

typedef struct {
    uint64_t flags;
    void* reserved_addr;
    size_t reserved_size;
    int relro_fd;
    int library_fd;
    off64_t library_fd_offset;
    struct android_namespace_t* library_namespace;
} android_dlextinfo;

// Like dlopen, with the extensions `info` selects (null: none). Returns null on failure.
void* android_dlopen_ext(const char* filename, int flags, const android_dlextinfo* info);

#ifdef __cplusplus
}
#endif
