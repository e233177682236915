#include "LogCapture.h"

#include <android/log.h>

#include <cstdarg>
#include <cstdio>

#include "ThreadSafety.h"

namespace {

threadsafety::Mutex g_mutex;
std::vector<logcapture::Entry> g_entries GUARDED_BY(g_mutex);

int record(int priority, const char* tag, const char* format, va_list args) {
    va_list copy;
    va_copy(copy, args);
    const int length = vsnprintf(nullptr, 0, format, copy);
    va_end(copy);
    std::string text(length > 0 ? static_cast<size_t>(length) : 0, '\0');
    if (length > 0) vsnprintf(text.data(), text.size() + 1, format, args);
    threadsafety::MutexLock lock(g_mutex);
    g_entries.push_back({priority, tag == nullptr ? "" : tag, std::move(text)});
    return 1;
}

}  // namespace

extern "C" int __android_log_vprint(int priority, const char* tag, const char* format,
                                    va_list args) {
    return record(priority, tag, format, args);
}

extern "C" int __android_log_print(int priority, const char* tag, const char* format, ...) {
    va_list args;
    va_start(args, format);
    const int result = record(priority, tag, format, args);
    va_end(args);
    return result;
}

namespace logcapture {

std::vector<Entry> entries() {
    threadsafety::MutexLock lock(g_mutex);
    return g_entries;
}

void clear() {
    threadsafety::MutexLock lock(g_mutex);
    g_entries.clear();
}

size_t count(int priority, const std::string& tag, const std::string& text) {
    threadsafety::MutexLock lock(g_mutex);
    size_t n = 0;
    for (const auto& e : g_entries) n += (e.priority == priority && e.tag == tag && e.text == text);
    return n;
}

Entry verbose(const std::string& text) {
    return {ANDROID_LOG_VERBOSE, "Vistrel", text};
}
Entry info(const std::string& text) {
    return {ANDROID_LOG_INFO, "Vistrel", text};
}
Entry warning(const std::string& text) {
    return {ANDROID_LOG_WARN, "Vistrel", text};
}
Entry error(const std::string& text) {
    return {ANDROID_LOG_ERROR, "Vistrel", text};
}

}  // namespace logcapture
