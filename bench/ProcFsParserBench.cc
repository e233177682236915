// Kernel-file parsing and the process scan, each paired with a baseline:
//   - parsing one real status text: the table parser vs a plain linear strncmp walk of the table
//     and vs a per-line sscanf parser (all three must produce the same record);
//   - a full scan (getNextPid + getProcessStatusData for every process) vs the floor of
//     readdir + open + one read + close of every status file, with about 700 processes present
//     (idle children are spawned for it), and vs that floor plus the per-entry stat the
//     enumeration makes to accept only directories ("part:" adds the table parse of each text
//     to that floor, to show what the gap consists of).
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "BenchSupport.h"
#include "procfsutils/ProcFsParser.h"
#include "procfsutils/ProcFsParserInternal.h"

namespace {

using namespace procfsutils;
using namespace procfsutils::internal;

std::string loadStatusText() {
    std::ifstream in(VISTREL_SOURCE_DIR "/tests/data/procfs-host/proc/4974/status");
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
}

const std::string& statusText() {
    static const std::string text = loadStatusText();
    return text;
}

// Stores one converted value the way the table parser does, through the exported scanners.
void storeValue(const DataFileField& row, const char* text, int v, int e, char* record) {
    switch (row.type) {
        case KiloBytes32: {
            const uint64_t bytes = getByteCount(text, v, e);
            const uint32_t kib = bytes >= (uint64_t{1} << 41) ? UINT32_MAX : bytes / 1024;
            memcpy(record + row.offset, &kib, 4);
            break;
        }
        case Int32: {
            const auto n = static_cast<int64_t>(getNumber(text, v, e));
            const int32_t value = n > INT32_MAX ? -1 : static_cast<int32_t>(n);
            memcpy(record + row.offset, &value, 4);
            break;
        }
        case UInt64: {
            const uint64_t n = getNumber(text, v, e);
            memcpy(record + row.offset, &n, 8);
            break;
        }
        case String:
            getString(text, v, e, record + row.offset, static_cast<int>(row.size));
            break;
        case Char: {
            char letter[2];
            getString(text, v, e, letter, 2);
            record[row.offset] = letter[0];
            break;
        }
        default:
            break;
    }
}

// Baseline 1: the same line walk with a plain strncmp against every row in turn.
void strncmpWalk(const char* text, int len, ProcessStatusData* out) {
    int pos = 0;
    while (pos < len) {
        int k = pos;
        while (k < len && text[k] != ':' && text[k] != ' ' && text[k] != '\n') ++k;
        const int v = k + 1;
        if (v >= len) return;
        int e = v;
        while (e < len && text[e] != '\n') ++e;
        if (k != pos && v < e) {
            for (int i = 0; i < kProcessStatusFieldCount; ++i) {
                if (strncmp(text + pos, kProcessStatusFields[i].name, k - pos) == 0) {
                    storeValue(kProcessStatusFields[i], text, v, e, reinterpret_cast<char*>(out));
                    break;
                }
            }
        }
        pos = e + 1;
    }
}

// Baseline 2: each line copied out and taken apart with sscanf, keys compared with strcmp.
void sscanfLines(const char* text, int len, ProcessStatusData* out) {
    char* record = reinterpret_cast<char*>(out);
    const char* end = text + len;
    for (const char* line = text; line < end;) {
        const char* next = static_cast<const char*>(memchr(line, '\n', end - line));
        if (next == nullptr) next = end;
        char buf[1024];
        const size_t n = std::min<size_t>(next - line, sizeof buf - 1);
        memcpy(buf, line, n);
        buf[n] = '\0';
        line = next + 1;
        char key[64];
        int valueAt = 0;
        if (sscanf(buf, "%63[^:]:%n", key, &valueAt) != 1 || valueAt == 0) continue;
        const char* value = buf + valueAt;
        for (int i = 0; i < kProcessStatusFieldCount; ++i) {
            const DataFileField& row = kProcessStatusFields[i];
            if (strcmp(key, row.name) != 0) continue;
            unsigned long long number = 0;
            char unit[8] = "";
            if (row.type == KiloBytes32 && sscanf(value, "%llu %7s", &number, unit) >= 1) {
                const uint64_t bytes = unit[0] == 'k' ? number << 10 : number;
                const uint32_t kib = bytes >= (uint64_t{1} << 41) ? UINT32_MAX : bytes / 1024;
                memcpy(record + row.offset, &kib, 4);
            } else if (row.type == Int32 && sscanf(value, "%llu", &number) == 1) {
                const int32_t n = number > INT32_MAX ? -1 : static_cast<int32_t>(number);
                memcpy(record + row.offset, &n, 4);
            } else if (row.type == UInt64 && sscanf(value, "%llu", &number) == 1) {
                memcpy(record + row.offset, &number, 8);
            } else if (row.type == String) {
                char name[64] = "";
                sscanf(value, " %63[^\n]", name);
                size_t length = strlen(name);
                while (length > 0 && (name[length - 1] == ' ' || name[length - 1] == '\t'))
                    --length;
                length = std::min(length, row.size - 1);
                memcpy(record + row.offset, name, length);
                record[row.offset + length] = '\0';
            } else if (row.type == Char) {
                sscanf(value, " %c", record + row.offset);
            }
            break;
        }
    }
}

using StatusParser = void (*)(const char*, int, ProcessStatusData*);

bool sameAsTableParser(StatusParser parser) {
    const std::string& text = statusText();
    ProcessStatusData ours, theirs;
    memset(&ours, 0, sizeof ours);
    memset(&theirs, 0, sizeof theirs);
    parseProcessStatusData(text.data(), static_cast<int>(text.size()), &ours);
    parser(text.data(), static_cast<int>(text.size()), &theirs);
    return memcmp(&ours, &theirs, sizeof ours) == 0 && ours.vmRss != 0 && ours.name[0] != 0;
}

// A side that parses the status text `calls` times; -1 when its record differs from the table
// parser's.
benchsupport::Side statusParse(StatusParser parser) {
    if (!sameAsTableParser(parser)) return [](int) { return -1.0; };
    return benchsupport::onThisThread([parser] {
        const std::string& text = statusText();
        ProcessStatusData out;
        memset(&out, 0, sizeof out);
        parser(text.data(), static_cast<int>(text.size()), &out);
        benchmark::DoNotOptimize(out);
        benchmark::ClobberMemory();
    });
}

void fullScan(ProcFsParser& parser) {
    ProcessStatusData status;
    parser.reset();
    int pid;
    while (parser.getNextPid(&pid))
        benchmark::DoNotOptimize(parser.getProcessStatusData(pid, &status));
}

// The least any scan must do: list /proc, then open, read once and close each status file.
// With `withStat`, also the stat of each numeric entry that the enumeration makes to accept only
// directories: the floor of the system calls the reader itself must issue. With `withParse`,
// also the table parse of each text: what the reader must do, bare.
void scanFloor(DIR* dir, bool withStat, bool withParse = false) {
    static char buffer[32768];
    rewinddir(dir);
    while (const dirent* entry = readdir(dir)) {
        if (entry->d_name[0] < '0' || entry->d_name[0] > '9') continue;
        char path[288];
        struct stat st;
        snprintf(path, sizeof path, "/proc/%s", entry->d_name);
        if (withStat && stat(path, &st) != 0) continue;
        snprintf(path, sizeof path, "/proc/%s/status", entry->d_name);
        const int fd = open(path, O_RDONLY | O_CLOEXEC);
        if (fd < 0) continue;
        const ssize_t count = read(fd, buffer, sizeof buffer);
        close(fd);
        if (withParse && count >= 0) {
            ProcessStatusData status;
            memset(&status, 0, sizeof status);
            parseProcessStatusData(buffer, static_cast<int>(count), &status);
            benchmark::DoNotOptimize(status);
        }
    }
}

}  // namespace

int main(int argc, char** argv) {
    benchsupport::IdleProcesses idle(700);
    printf("processes present for the scan: %d (%d idle children spawned)\n",
           benchsupport::countProcesses(), idle.spawned());
    ProcFsParser parser;
    DIR* proc = opendir("/proc");
    const std::vector<benchsupport::Pair> pairs = {
            {"status parse: table vs strncmp walk", statusParse(parseProcessStatusData),
             statusParse(strncmpWalk), 2000, "< 0.25"},
            {"status parse: table vs per-line sscanf", statusParse(parseProcessStatusData),
             statusParse(sscanfLines), 2000, "< 0.125"},
            {"full scan vs open+read+close floor",
             benchsupport::onThisThread([&parser] { fullScan(parser); }),
             benchsupport::onThisThread([proc] { scanFloor(proc, false); }), 1, "<= 1.1"},
            {"full scan vs floor + per-entry stat",
             benchsupport::onThisThread([&parser] { fullScan(parser); }),
             benchsupport::onThisThread([proc] { scanFloor(proc, true); }), 1, "-"},
            {"part: full scan vs floor + stat + table parse",
             benchsupport::onThisThread([&parser] { fullScan(parser); }),
             benchsupport::onThisThread([proc] { scanFloor(proc, true, true); }), 1, "-"},
    };
    const int status = benchsupport::runPairs(argc, argv, pairs, 10, 1.0);
    closedir(proc);
    return status;
}
