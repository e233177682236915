// Host property store and the SharedOsServicesProperties accessors that read it. Parsing follows
// the generated sysprop code: booleans accept 1/true/0/false in any case; integers are parsed as
// android::base::ParseInt/ParseUint do (leading blanks skipped, hexadecimal only after "0x",
// otherwise decimal, whole text, range-checked, no sign for unsigned types).
#include "SharedOsServicesProperties.sysprop.h"

#include <strings.h>
#include <cctype>
#include <cerrno>
#include <cstdlib>
#include <limits>
#include <map>

#include "ThreadSafety.h"
#include "hostplatform/Properties.h"

namespace {

threadsafety::Mutex g_mutex;
std::map<std::string, std::string> g_store GUARDED_BY(g_mutex);

std::optional<bool> parseBool(const std::string& text) {
    const char* s = text.c_str();
    if (strcasecmp(s, "1") == 0 || strcasecmp(s, "true") == 0) return true;
    if (strcasecmp(s, "0") == 0 || strcasecmp(s, "false") == 0) return false;
    return std::nullopt;
}

template <typename T>
std::optional<T> parseInteger(const std::string& text) {
    const char* begin = text.c_str();
    while (isspace(static_cast<unsigned char>(*begin))) ++begin;
    const int base = (begin[0] == '0' && (begin[1] == 'x' || begin[1] == 'X')) ? 16 : 10;
    char* end = nullptr;
    errno = 0;
    if constexpr (std::numeric_limits<T>::is_signed) {
        const long long value = strtoll(begin, &end, base);
        if (errno != 0 || end == begin || *end != '\0') return std::nullopt;
        if (value < std::numeric_limits<T>::min() || value > std::numeric_limits<T>::max()) {
            return std::nullopt;
        }
        return static_cast<T>(value);
    } else {
        if (*begin == '-') return std::nullopt;
        const unsigned long long value = strtoull(begin, &end, base);
        if (errno != 0 || end == begin || *end != '\0') return std::nullopt;
        if (value > std::numeric_limits<T>::max()) return std::nullopt;
        return static_cast<T>(value);
    }
}

enum class Type { Bool, Int32, UInt32 };

const std::map<std::string, Type>& propertyTypes() {
    static const std::map<std::string, Type> types = {
            {"vistrel_instruction_sampler_sampling_period_us", Type::UInt32},
            {"mobile_vistrel_zram_idle_collector", Type::Bool},
            {"mobile_vistrel_zram_idle_threshold", Type::Int32},
            {"mobile_vistrel_zram_idle_histo_bucket", Type::Int32},
            {"mobile_vistrel_memory_extended_collector", Type::Bool},
            {"enable_fg_apps_cpu_events", Type::Bool},
    };
    return types;
}

std::optional<bool> readBool(const char* name) {
    const auto text = hostplatform::getProperty(name);
    return text ? parseBool(*text) : std::nullopt;
}

template <typename T>
std::optional<T> readInteger(const char* name) {
    const auto text = hostplatform::getProperty(name);
    return text ? parseInteger<T>(*text) : std::nullopt;
}

}  // namespace

namespace hostplatform {

void setProperty(const std::string& name, const std::string& value) {
    threadsafety::MutexLock lock(g_mutex);
    g_store[name] = value;
}

void clearProperties() {
    threadsafety::MutexLock lock(g_mutex);
    g_store.clear();
}

std::optional<std::string> getProperty(const std::string& name) {
    threadsafety::MutexLock lock(g_mutex);
    const auto it = g_store.find(name);
    if (it == g_store.end()) return std::nullopt;
    return it->second;
}

std::optional<std::string> checkProperty(const std::string& name, const std::string& value) {
    const auto it = propertyTypes().find(name);
    if (it == propertyTypes().end()) return "unknown property '" + name + "'";
    bool ok = false;
    switch (it->second) {
        case Type::Bool:
            ok = parseBool(value).has_value();
            break;
        case Type::Int32:
            ok = parseInteger<int32_t>(value).has_value();
            break;
        case Type::UInt32:
            ok = parseInteger<uint32_t>(value).has_value();
            break;
    }
    if (ok) return std::nullopt;
    static const char* const kTypeNames[] = {"a boolean (true/false/1/0)", "a 32-bit integer",
                                             "an unsigned 32-bit integer"};
    return "property '" + name + "' needs " + kTypeNames[static_cast<int>(it->second)] + ", not '" +
           value + "'";
}

}  // namespace hostplatform

namespace halden::sysprop::SharedOsServicesProperties {

std::optional<std::uint32_t> vistrel_instruction_sampler_sampling_period_us() {
    return readInteger<std::uint32_t>("vistrel_instruction_sampler_sampling_period_us");
}
std::optional<bool> mobile_vistrel_zram_idle_collector() {
    return readBool("mobile_vistrel_zram_idle_collector");
}
std::optional<std::int32_t> mobile_vistrel_zram_idle_threshold() {
    return readInteger<std::int32_t>("mobile_vistrel_zram_idle_threshold");
}
std::optional<std::int32_t> mobile_vistrel_zram_idle_histo_bucket() {
    return readInteger<std::int32_t>("mobile_vistrel_zram_idle_histo_bucket");
}
std::optional<bool> mobile_vistrel_memory_extended_collector() {
    return readBool("mobile_vistrel_memory_extended_collector");
}
std::optional<bool> enable_fg_apps_cpu_events() {
    return readBool("enable_fg_apps_cpu_events");
}

}  // namespace halden::sysprop::SharedOsServicesProperties
