// Virtual-table slot of a virtual member function, read from its pointer-to-member
// representation under the Itanium C++ ABI (x86-64 and AArch64). Contract tests use it to fix
// the slot order that code compiled against other modules relies on. Slots count from 0; a
// class with a virtual destructor has the destructor pair in its first two slots (or after the
// slots it inherits from a primary base).
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace testing_support {

// -1 when `member` is not a virtual function.
template <typename F>
ptrdiff_t slotOf(F member) {
    struct Representation {
        uintptr_t ptr;
        ptrdiff_t adj;
    } r;
    static_assert(sizeof(member) == sizeof(r), "not a pointer to member function");
    memcpy(&r, &member, sizeof(r));
#if defined(__aarch64__) || defined(__arm__)
    // ARM: the virtual flag is the low bit of adj; ptr is the byte offset into the vtable.
    if ((r.adj & 1) == 0) return -1;
    return static_cast<ptrdiff_t>(r.ptr / sizeof(void*));
#else
    // Generic Itanium: ptr is 1 + the byte offset into the vtable for a virtual function.
    if ((r.ptr & 1) == 0) return -1;
    return static_cast<ptrdiff_t>((r.ptr - 1) / sizeof(void*));
#endif
}

}  // namespace testing_support
