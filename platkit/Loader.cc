#include "platkit/Loader.h"

#include <android/dlext.h>
#include <android/log.h>
#include <dlfcn.h>

namespace Platkit {
namespace internal {
namespace {

constexpr char kLogTag[] = "PlatkitLoader";

// Exported by the platform's linker and declared in no public header. Looked up in the global
// scope, so an older linker without it (or glibc) simply yields null.
using GetExportedNamespace = android_namespace_t* (*)(const char* name);

void* openInDefaultNamespace(const char* path) {
    const auto getExportedNamespace = reinterpret_cast<GetExportedNamespace>(
            dlsym(RTLD_DEFAULT, "__loader_android_get_exported_namespace"));
    if (getExportedNamespace == nullptr) return nullptr;
    android_namespace_t* defaultNamespace = getExportedNamespace("default");
    if (defaultNamespace == nullptr) return nullptr;
    android_dlextinfo info{};
    info.flags = ANDROID_DLEXT_USE_NAMESPACE;
    info.library_namespace = defaultNamespace;
    return android_dlopen_ext(path, RTLD_LAZY, &info);
}

}  // namespace

Loader platkitModule("libplatkit.halden.so");
Loader instsampModule("libinstsamp.halden.so");

void Loader::loadModule() {
    std::call_once(loaded, [this] { open(); });
}

void Loader::open() {
    __android_log_print(ANDROID_LOG_DEBUG, kLogTag, "Platkit loading module '%s'", path);
    handle = openInDefaultNamespace(path);
    if (handle == nullptr) handle = dlopen(path, RTLD_LAZY);
    if (handle == nullptr) {
        __android_log_print(ANDROID_LOG_ERROR, kLogTag, "Platkit module '%s' not found", path);
    }
}

void* lookUp(Loader& module, const char* name) {
    module.loadModule();
    void* handle = module.getHandle();
    if (handle == nullptr) return nullptr;
    dlerror();  // a stale error must not be mistaken for this look-up's
    return dlsym(handle, name);
}

}  // namespace internal
}  // namespace Platkit
