// Run-time access to the SDK modules: each module is opened once per process, each exported
// function looked up once, and every service object is handed out as a shared handle whose last
// release returns the object to its module.
//
// Modules are opened in the platform's "default" linker namespace when the linker exports one
// (through android_dlopen_ext), otherwise with plain dlopen; either way by bare file name, so the
// loader's library search path decides which file is used. A module that cannot be opened is
// logged once (tag "PlatkitLoader") and never retried; its factories then return empty handles.
// Handles are never closed. Everything here is thread-safe: concurrent first callers wait for the
// one that loads or looks up.
#pragma once

#include <cstdint>
#include <memory>
#include <mutex>

namespace Platkit {
namespace internal {

// One SDK module file, loaded at most once per process.
class Loader {
public:
    constexpr explicit Loader(const char* path) : path(path) {}
    Loader(const Loader&) = delete;
    Loader& operator=(const Loader&) = delete;

    // Opens the module on the first call; later calls do nothing.
    void loadModule();
    // The opened module, or null (not loaded yet, or loading failed).
    void* getHandle() const { return handle; }
    const char* getPath() const { return path; }

private:
    void open();

    const char* path;
    void* handle = nullptr;
    std::once_flag loaded;
};

// "libplatkit.halden.so": the focus manager.
extern Loader platkitModule;
// "libinstsamp.halden.so": the instruction sampler.
extern Loader instsampModule;

// dlsym of `name` in `module` after loading it; null when the module or the name is missing.
void* lookUp(Loader& module, const char* name);

}  // namespace internal

namespace Symbol {

// One exported function of a module, looked up on first use and cached for the process.
template <typename Function>
class Cache {
public:
    constexpr Cache(internal::Loader& module, const char* name) : module(module), name(name) {}
    Cache(const Cache&) = delete;
    Cache& operator=(const Cache&) = delete;

    // The function, or null when the module or the name is missing.
    Function getCached() {
        std::call_once(looked, [this] {
            cached = reinterpret_cast<Function>(internal::lookUp(module, name));
        });
        return cached;
    }

private:
    internal::Loader& module;
    const char* name;
    Function cached = nullptr;
    std::once_flag looked;
};

}  // namespace Symbol

namespace internal {

// The destroy side of one interface: returns objects to the module with the version they were
// created with. The destroy function is called without checking that it was found, so a module
// must export both functions of a service.
template <typename Interface>
class PtrFactory {
public:
    using Create = Interface* (*)(int64_t version);
    using Destroy = void (*)(int64_t version, Interface* object) noexcept;

    constexpr PtrFactory(Symbol::Cache<Create>& create, Symbol::Cache<Destroy>& destroyFunction,
                         int64_t version)
        : create(create), destroyFunction(destroyFunction), version(version) {}

    void destroy(Interface* object) { destroyFunction.getCached()(version, object); }

    // A new object from the module's create function, owned by a handle whose deleter is
    // destroy(); empty when the function is missing or returns null.
    std::shared_ptr<Interface> makeShared() {
        const Create createFunction = create.getCached();
        if (createFunction == nullptr) return nullptr;
        Interface* object = createFunction(version);
        if (object == nullptr) return nullptr;
        return std::shared_ptr<Interface>(object, [this](Interface* o) { destroy(o); });
    }

private:
    Symbol::Cache<Create>& create;
    Symbol::Cache<Destroy>& destroyFunction;
    int64_t version;
};

}  // namespace internal
}  // namespace Platkit
