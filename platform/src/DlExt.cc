// android_dlopen_ext on glibc: validates the extension record the way bionic does (unknown flag
// bits, a namespace flag without a namespace), records the call, then opens the library with
// dlopen. glibc has no linker namespaces, so the namespace only has to be well-formed.
#include <android/dlext.h>
#include <dlfcn.h>

#include "ThreadSafety.h"
#include "hostplatform/DlExt.h"

namespace {

threadsafety::Mutex g_mutex;
std::vector<hostplatform::DlopenExtCall>* const g_calls PT_GUARDED_BY(g_mutex) =
        new std::vector<hostplatform::DlopenExtCall>;

bool wellFormed(const android_dlextinfo* info) {
    if (info == nullptr) return true;
    if ((info->flags & ~uint64_t{ANDROID_DLEXT_VALID_FLAG_BITS}) != 0) return false;
    if ((info->flags & ANDROID_DLEXT_USE_NAMESPACE) != 0 && info->library_namespace == nullptr) {
        return false;
    }
    return true;
}

}  // namespace

extern "C" void* android_dlopen_ext(const char* filename, int flags, const android_dlextinfo* info) {
    void* handle = wellFormed(info) ? dlopen(filename, flags) : nullptr;
    threadsafety::MutexLock lock(g_mutex);
    g_calls->push_back({filename == nullptr ? "" : filename, flags,
                        info == nullptr ? 0 : info->flags,
                        info == nullptr ? nullptr : info->library_namespace, handle != nullptr});
    return handle;
}

namespace hostplatform {

std::vector<DlopenExtCall> dlopenExtCalls() {
    threadsafety::MutexLock lock(g_mutex);
    return *g_calls;
}

}  // namespace hostplatform
