// Value types that carry data across the boundary between the library and an SDK module.
//
// Each owns its data through a release function chosen by the side that allocated it, so memory
// is always freed by the module that made it: destroying or replacing a value calls its release
// function, if it has one, exactly once with the stored data, length or count, and extra
// pointer. Values are moved, not shared; only String can be copied (deeply, with the C
// allocator). None of them is thread-safe; each belongs to one thread at a time.
#pragma once

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <new>
#include <type_traits>
#include <utility>
#include <vector>

namespace Platkit {

// A NUL-terminated text of `length` bytes (the NUL not counted).
struct String {
    using Release = void (*)(char* data, uint64_t length, void* extra);

    char* data = nullptr;
    uint64_t length = 0;
    void* extra = nullptr;
    Release release = nullptr;

    String() = default;
    // Copies `text` into a new buffer from the C allocator, released by freeStr. Aborts when the
    // length is the largest size value or the allocator returns nothing.
    explicit String(const char* text) { copyFrom(text, strlen(text)); }
    String(const char* text, uint64_t textLength) { copyFrom(text, textLength); }
    // Takes over a buffer the caller allocated, with the function that frees it.
    String(char* data, uint64_t length, void* extra, Release release)
        : data(data), length(length), extra(extra), release(release) {}
    String(const String& other) { copyFrom(other.data, other.length); }
    String(String&& other) noexcept { takeFrom(other); }
    String& operator=(const String& other) {
        if (this != &other) {
            String copy(other);
            reset();
            takeFrom(copy);
        }
        return *this;
    }
    String& operator=(String&& other) noexcept {
        if (this != &other) {
            reset();
            takeFrom(other);
        }
        return *this;
    }
    ~String() { reset(); }

    // Release function of strings made here: frees `data` with the C allocator.
    static void freeStr(char* data, uint64_t /*length*/, void* /*extra*/) { free(data); }

    // Releases the text (once) and leaves the string empty.
    void reset() {
        if (release != nullptr) release(data, length, extra);
        data = nullptr;
        length = 0;
        extra = nullptr;
        release = nullptr;
    }

    const char* c_str() const { return data == nullptr ? "" : data; }

private:
    void copyFrom(const char* text, uint64_t textLength) {
        if (textLength == SIZE_MAX) abort();
        auto* copy = static_cast<char*>(malloc(textLength + 1));
        if (copy == nullptr) abort();
        if (textLength != 0) memcpy(copy, text, textLength);
        copy[textLength] = '\0';
        data = copy;
        length = textLength;
        release = &freeStr;
    }
    void takeFrom(String& other) {
        data = std::exchange(other.data, nullptr);
        length = std::exchange(other.length, 0);
        extra = std::exchange(other.extra, nullptr);
        release = std::exchange(other.release, nullptr);
    }
};

// `count` elements at `data`, owned through `extra` and `release`.
template <typename T>
struct Array {
    using Release = void (*)(T* data, uint64_t count, void* extra);

    T* data = nullptr;
    uint64_t count = 0;
    void* extra = nullptr;
    Release release = nullptr;

    Array() = default;
    // Takes the vector over: it moves into a heap object held in `extra`, released by deleteExtra.
    explicit Array(std::vector<T>&& elements) {
        auto* owned = new std::vector<T>(std::move(elements));
        data = owned->data();
        count = owned->size();
        extra = owned;
        release = &deleteExtra;
    }
    Array(T* data, uint64_t count, void* extra, Release release)
        : data(data), count(count), extra(extra), release(release) {}
    Array(const Array&) = delete;
    Array& operator=(const Array&) = delete;
    Array(Array&& other) noexcept { takeFrom(other); }
    Array& operator=(Array&& other) noexcept {
        if (this != &other) {
            reset();
            takeFrom(other);
        }
        return *this;
    }
    ~Array() { reset(); }

    // Release function of arrays built from a vector: deletes the vector held in `extra`. For
    // arrays of String, every string is released first, last element first.
    static void deleteExtra(T* /*data*/, uint64_t /*count*/, void* extra) {
        auto* owned = static_cast<std::vector<T>*>(extra);
        if constexpr (std::is_same_v<T, String>) {
            for (auto it = owned->rbegin(); it != owned->rend(); ++it) it->reset();
        }
        delete owned;
    }

    // Releases the elements (once) and leaves the array empty.
    void reset() {
        if (release != nullptr) release(data, count, extra);
        data = nullptr;
        count = 0;
        extra = nullptr;
        release = nullptr;
    }

    // Elements to read: none without data, whatever the count a faulty module left in it.
    T* begin() const { return data; }
    T* end() const { return data == nullptr ? data : data + count; }
    uint64_t size() const { return data == nullptr ? 0 : count; }
    T& operator[](uint64_t i) const { return data[i]; }

private:
    void takeFrom(Array& other) {
        data = std::exchange(other.data, nullptr);
        count = std::exchange(other.count, 0);
        extra = std::exchange(other.extra, nullptr);
        release = std::exchange(other.release, nullptr);
    }
};

// An optional value as the SDK passes it: an engaged flag and, when engaged, the value.
template <typename T>
class Optional {
public:
    Optional() = default;
    Optional(T value) : engaged_(true) { new (&storage_) T(std::move(value)); }
    Optional(const Optional& other) : engaged_(other.engaged_) {
        if (engaged_) new (&storage_) T(*other);
    }
    Optional(Optional&& other) noexcept : engaged_(other.engaged_) {
        if (engaged_) new (&storage_) T(std::move(*other));
    }
    Optional& operator=(Optional other) noexcept {
        destroy();
        engaged_ = other.engaged_;
        if (engaged_) new (&storage_) T(std::move(*other));
        return *this;
    }
    ~Optional() { destroy(); }

    bool has_value() const { return engaged_; }
    T& operator*() { return *reinterpret_cast<T*>(&storage_); }
    const T& operator*() const { return *reinterpret_cast<const T*>(&storage_); }
    T* operator->() { return &**this; }
    const T* operator->() const { return &**this; }

private:
    void destroy() {
        if (engaged_) (**this).~T();
        engaged_ = false;
    }

    bool engaged_ = false;
    alignas(T) unsigned char storage_[sizeof(T)];
};

}  // namespace Platkit
