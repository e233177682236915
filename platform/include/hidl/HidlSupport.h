// Host stand-in for libhidl's value types: hidl_string, hidl_vec<T>, hidl_array<T, N>,
// hidl_handle and the toString helpers generated code relies on. Same API shape as on the
// device (what HAL clients call); the storage behind it is the standard library's.
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <initializer_list>
#include <iomanip>
#include <ostream>
#include <sstream>
#include <string>
#include <type_traits>
#include <vector>

#include <cutils/native_handle.h>

namespace android {
namespace hardware {

// An owned string. Every constructor is implicit, as in libhidl; a null C string is "".
class hidl_string {
public:
    hidl_string() = default;
    hidl_string(const hidl_string&) = default;
    hidl_string(hidl_string&&) noexcept = default;
    hidl_string(const char* s) : text_(s == nullptr ? "" : s) {}  // NOLINT(implicit)
    hidl_string(const char* s, size_t length)
        : text_(s == nullptr ? std::string() : std::string(s, length)) {}
    hidl_string(const std::string& s) : text_(s) {}  // NOLINT(implicit)

    hidl_string& operator=(const hidl_string&) = default;
    hidl_string& operator=(hidl_string&&) noexcept = default;
    hidl_string& operator=(const char* s) {
        text_ = s == nullptr ? "" : s;
        return *this;
    }
    hidl_string& operator=(const std::string& s) {
        text_ = s;
        return *this;
    }

    const char* c_str() const { return text_.c_str(); }
    size_t size() const { return text_.size(); }
    bool empty() const { return text_.empty(); }
    void clear() { text_.clear(); }
    operator std::string() const { return text_; }  // NOLINT(implicit)

private:
    std::string text_;
};

#define HIDL_STRING_COMPARISON(OP)                                        \
    inline bool operator OP(const hidl_string& a, const hidl_string& b) { \
        return strcmp(a.c_str(), b.c_str()) OP 0;                         \
    }                                                                     \
    inline bool operator OP(const hidl_string& a, const char* b) {        \
        return strcmp(a.c_str(), b == nullptr ? "" : b) OP 0;             \
    }                                                                     \
    inline bool operator OP(const char* a, const hidl_string& b) {        \
        return strcmp(a == nullptr ? "" : a, b.c_str()) OP 0;             \
    }
HIDL_STRING_COMPARISON(==)
HIDL_STRING_COMPARISON(!=)
HIDL_STRING_COMPARISON(<)
HIDL_STRING_COMPARISON(<=)
HIDL_STRING_COMPARISON(>)
HIDL_STRING_COMPARISON(>=)
#undef HIDL_STRING_COMPARISON

inline std::ostream& operator<<(std::ostream& out, const hidl_string& s) {
    return out << s.c_str();
}

// A resizable vector. Deliberately without empty(), push_back(), emplace_back(), insert() and
// clear(): code written against this compiles against libhidl too.
template <typename T>
class hidl_vec {
public:
    using value_type = T;
    using iterator = typename std::vector<T>::iterator;
    using const_iterator = typename std::vector<T>::const_iterator;

    hidl_vec() = default;
    hidl_vec(size_t size) : items_(size) {}  // NOLINT(implicit): value-initialised elements
    hidl_vec(const hidl_vec&) = default;
    hidl_vec(hidl_vec&&) noexcept = default;
    hidl_vec(std::initializer_list<T> items) : items_(items) {}
    hidl_vec(const std::vector<T>& items) : items_(items) {}  // NOLINT(implicit)
    template <typename Iterator,
              typename = decltype(*std::declval<Iterator&>(), ++std::declval<Iterator&>())>
    hidl_vec(Iterator first, Iterator last) : items_(first, last) {}

    hidl_vec& operator=(const hidl_vec&) = default;
    hidl_vec& operator=(hidl_vec&&) noexcept = default;
    hidl_vec& operator=(const std::vector<T>& items) {
        items_ = items;
        return *this;
    }
    hidl_vec& operator=(std::initializer_list<T> items) {
        items_ = items;
        return *this;
    }

    size_t size() const { return items_.size(); }
    T& operator[](size_t index) { return items_[index]; }
    const T& operator[](size_t index) const { return items_[index]; }
    T* data() { return items_.data(); }
    const T* data() const { return items_.data(); }
    void resize(size_t size) { items_.resize(size); }

    iterator begin() { return items_.begin(); }
    iterator end() { return items_.end(); }
    const_iterator begin() const { return items_.begin(); }
    const_iterator end() const { return items_.end(); }

    iterator find(const T& value) { return std::find(items_.begin(), items_.end(), value); }
    const_iterator find(const T& value) const {
        return std::find(items_.begin(), items_.end(), value);
    }
    bool contains(const T& value) const { return find(value) != end(); }

    bool operator==(const hidl_vec& other) const { return items_ == other.items_; }
    bool operator!=(const hidl_vec& other) const { return items_ != other.items_; }
    operator std::vector<T>() const { return items_; }  // NOLINT(implicit)

private:
    std::vector<T> items_;
};

// A fixed-size array (one dimension, which is all the interfaces used here need).
template <typename T, size_t N>
class hidl_array {
public:
    hidl_array() = default;
    T& operator[](size_t index) { return items_[index]; }
    const T& operator[](size_t index) const { return items_[index]; }
    T* data() { return items_.data(); }
    const T* data() const { return items_.data(); }
    static constexpr size_t size() { return N; }
    bool operator==(const hidl_array& other) const { return items_ == other.items_; }
    bool operator!=(const hidl_array& other) const { return items_ != other.items_; }
    operator std::array<T, N>() const { return items_; }  // NOLINT(implicit)

private:
    std::array<T, N> items_{};
};

// A native handle reference; interfaces here only pass it through (IBase::debug).
class hidl_handle {
public:
    hidl_handle() = default;
    hidl_handle(const native_handle_t* handle) : handle_(handle) {}  // NOLINT(implicit)
    const native_handle_t* getNativeHandle() const { return handle_; }
    operator const native_handle_t*() const { return handle_; }  // NOLINT(implicit)

private:
    const native_handle_t* handle_ = nullptr;
};

namespace details {

// Lower-case hexadecimal with a 0x prefix, except 0 which prints as "0" (std::showbase);
// negative values in two's complement at their width; 8-bit values (bool included) are widened
// to 32 bits. make_unsigned is only applied to wider types: it rejects bool.
template <typename T>
std::string toHexString(T value, bool prefix = true) {
    std::ostringstream out;
    if (prefix) out << std::showbase;
    using Wide = typename std::conditional_t<sizeof(T) == 1, std::common_type<uint32_t>,
                                             std::make_unsigned<T>>::type;
    const Wide bits = sizeof(T) == 1 ? static_cast<Wide>(static_cast<int32_t>(value))
                                     : static_cast<Wide>(value);
    out << std::hex << bits;
    return out.str();
}

}  // namespace details

inline std::string toString(const hidl_string& s) {
    return "\"" + std::string(s) + "\"";
}
inline std::string toString(bool value) {
    return value ? "true" : "false";
}
template <typename T, typename = std::enable_if_t<std::is_arithmetic<T>::value>>
std::string toString(T value) {
    return std::to_string(value);
}

namespace details {

template <typename Range>
std::string toStringItems(const Range& items, size_t count) {
    using ::android::hardware::toString;
    std::string text = "[" + std::to_string(count) + "]{";
    bool first = true;
    for (const auto& item : items) {
        if (!first) text += ", ";
        first = false;
        text += toString(item);
    }
    return text + "}";
}

}  // namespace details

template <typename T>
std::string toString(const hidl_vec<T>& items) {
    return details::toStringItems(items, items.size());
}

template <typename T, size_t N>
std::string toString(const hidl_array<T, N>& items) {
    return details::toStringItems(std::array<T, N>(items), N);
}

}  // namespace hardware
}  // namespace android
