// Texts and arrays that a simulated SDK module hands to its caller: allocated here, released
// only through the module's own release functions, and counted in the control library's
// outstanding allocations so tests can see that the caller released every one exactly once.
#pragma once

#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "SdkControl.h"
#include "platkit/Types.h"

namespace sim::sdk {

inline void releaseModuleText(char* data, uint64_t /*length*/, void* /*extra*/) {
    free(data);
    recordAllocation(-1);
}

inline Platkit::String moduleText(const std::string& text) {
    auto* copy = static_cast<char*>(malloc(text.size() + 1));
    if (copy == nullptr) abort();
    memcpy(copy, text.c_str(), text.size() + 1);
    recordAllocation(+1);
    return Platkit::String(copy, text.size(), nullptr, &releaseModuleText);
}

// Releases the elements last first, then the block, as the SDK's own arrays do.
template <typename T>
void releaseModuleArray(T* data, uint64_t count, void* /*extra*/) {
    for (uint64_t i = count; i > 0; --i) data[i - 1].~T();
    ::operator delete(static_cast<void*>(data));
    recordAllocation(-1);
}

// An array of `count` default-constructed elements owned by the module.
template <typename T>
Platkit::Array<T> moduleArray(uint64_t count) {
    auto* data = static_cast<T*>(::operator new(sizeof(T) * (count == 0 ? 1 : count)));
    for (uint64_t i = 0; i < count; ++i) new (&data[i]) T();
    recordAllocation(+1);
    return Platkit::Array<T>(data, count, nullptr, &releaseModuleArray<T>);
}

inline Platkit::Array<Platkit::String> moduleTexts(const std::vector<std::string>& texts) {
    auto array = moduleArray<Platkit::String>(texts.size());
    for (size_t i = 0; i < texts.size(); ++i) array[i] = moduleText(texts[i]);
    return array;
}

}  // namespace sim::sdk
