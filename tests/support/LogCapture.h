// Log capture for tests. Linking this object into a test executable substitutes
// __android_log_print and __android_log_vprint for the whole process (the executable's
// definitions take precedence over liblog's), so every line the library logs is recorded with
// its priority, tag and formatted text instead of being written. Thread-safe.
#pragma once

#include <ostream>
#include <string>
#include <vector>

namespace logcapture {

struct Entry {
    int priority;
    std::string tag;
    std::string text;
    bool operator==(const Entry& other) const {
        return priority == other.priority && tag == other.tag && text == other.text;
    }
};

// How a test failure shows an entry: "priority/tag: text".
inline void PrintTo(const Entry& entry, std::ostream* out) {
    *out << entry.priority << "/" << entry.tag << ": " << entry.text;
}

std::vector<Entry> entries();
void clear();
// Number of recorded lines with exactly this priority, tag and text.
size_t count(int priority, const std::string& tag, const std::string& text);

// A line with the library's tag "Vistrel" at each severity, to compare with entries().
Entry verbose(const std::string& text);
Entry info(const std::string& text);
Entry warning(const std::string& text);
Entry error(const std::string& text);

}  // namespace logcapture
