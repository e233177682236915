// Pure parsing of kernel statistics text and of /proc entry names.
//
// Formats handled:
//   /proc/<pid>/status    "Name:\tsurfaceflinger\n" "VmRSS:\t  123456 kB\n" "Threads:\t27\n"
//                         key, colon, tab, value; memory figures in kB (KiB) with a unit suffix.
//   /proc/vmstat          "pswpin 1234\n" "pswpout 5678\n": key, one blank, a count of 4 KiB pages.
//   /sys/block/<dev>/stat "   67032    24404  3011930    12270     6659 ..." 11, 15 or 17
//                         columns (kernel-version dependent); sector columns count 512-byte units,
//                         tick columns are milliseconds.
//   /sys/block/zram0/mm_stat "  4096  74  12288  0  12288  0  0  0  0" 9 columns upstream, 10 on
//                         the device kernel; sizes in bytes, the rest page counts.
//   /proc entry names     "612" (a process id), "self", "net", "1a" (not one)
//
// Nothing here allocates, keeps state or reads outside [start, end) / [0, len).
#include "procfsutils/ProcFsParserInternal.h"

#include <climits>
#include <cstddef>
#include <cstdio>
#include <cstring>

namespace procfsutils::internal {

namespace {

// Byte counts from 2^41 (2 TiB) up store all ones in a KiloBytes32 field.
constexpr uint64_t kKiloBytes32Limit = uint64_t{1} << 41;

inline bool isDigit(char c) {
    return c >= '0' && c <= '9';
}
inline bool isBlank(char c) {
    return c == ' ' || c == '\t';
}

// Skips non-digits, then accumulates digits (wrapping on overflow). *stop receives the index of
// the first non-digit after the digits, or `end`; found is false when no digit exists.
inline uint64_t scanNumber(const char* s, int start, int end, int* stop, bool* found) {
    int i = start;
    while (i < end && !isDigit(s[i])) ++i;
    *found = i < end;
    uint64_t value = 0;
    while (i < end && isDigit(s[i])) {
        value = value * 10 + static_cast<uint64_t>(s[i] - '0');
        ++i;
    }
    *stop = i;
    return value;
}

inline uint64_t scanByteCount(const char* s, int start, int end) {
    int i;
    bool found;
    uint64_t value = scanNumber(s, start, end, &i, &found);
    if (!found || i + 1 >= end) return value;
    // The unit letter is looked for one position past the first character after the digits, so
    // that "512 kB" finds the "k" across the blank; "512kB" thereby reads as 512 bytes.
    switch (s[i + 1]) {
        case 'G':
        case 'g':
            return value << 30;
        case 'M':
        case 'm':
            return value << 20;
        case 'K':
        case 'k':
            return value << 10;
        default:
            return value;
    }
}

// Rows grouped by the first character of their name, each group in table order. A row can only
// compare equal under strncmp (over at least one character) when its first character equals
// the key's, so walking a key's group tries exactly the rows of the plain table walk that can
// match, in the same order: the first match is the same row.
class RowIndex {
public:
    static constexpr int kMaxRows = 64;  // larger tables fall back to the plain walk

    RowIndex(const DataFileField* fields, int nfields) : fields(fields), nfields(nfields) {
        if (nfields > kMaxRows) return;
        memset(head, kNone, sizeof head);
        for (int i = nfields - 1; i >= 0; --i) {
            const auto first = static_cast<unsigned char>(fields[i].name[0]);
            next[i] = head[first];
            head[first] = static_cast<uint8_t>(i);
        }
    }

    // First row whose name compares equal over the key's length (so a key that is a prefix of a
    // name matches that row).
    const DataFileField* find(const char* key, int keyLength) const {
        const auto length = static_cast<size_t>(keyLength);
        if (nfields > kMaxRows) {
            for (int i = 0; i < nfields; ++i) {
                if (strncmp(key, fields[i].name, length) == 0) return &fields[i];
            }
            return nullptr;
        }
        for (uint8_t i = head[static_cast<unsigned char>(key[0])]; i != kNone; i = next[i]) {
            if (strncmp(key, fields[i].name, length) == 0) return &fields[i];
        }
        return nullptr;
    }

private:
    static constexpr uint8_t kNone = 0xff;
    const DataFileField* fields;
    int nfields;
    uint8_t head[256];
    uint8_t next[kMaxRows];
};

template <typename T>
inline void store(char* record, size_t offset, T value) {
    memcpy(record + offset, &value, sizeof value);
}

// Converts the value text [v, e) by the row's type into the record; a row whose size does not
// fit its type, or an unknown type, stores nothing.
inline void convert(const char* text, int v, int e, const DataFileField& row, char* record) {
    switch (row.type) {
        case ByteCount:
            if (row.size == sizeof(uint64_t)) store(record, row.offset, scanByteCount(text, v, e));
            break;
        case KiloBytes32:
            if (row.size == sizeof(uint32_t)) {
                const uint64_t bytes = scanByteCount(text, v, e);
                store(record, row.offset,
                      bytes >= kKiloBytes32Limit ? UINT32_MAX : static_cast<uint32_t>(bytes / 1024));
            }
            break;
        case KiloBytes64:
            if (row.size == sizeof(int64_t)) {
                store(record, row.offset, static_cast<int64_t>(scanByteCount(text, v, e)) / 1024);
            }
            break;
        case Int32:
            if (row.size == sizeof(int32_t)) {
                const auto value = static_cast<int64_t>(getNumber(text, v, e));
                store(record, row.offset,
                      value > INT32_MAX ? int32_t{-1} : static_cast<int32_t>(value));
            }
            break;
        case UInt64:
            if (row.size == sizeof(uint64_t)) store(record, row.offset, getNumber(text, v, e));
            break;
        case String:
            getString(text, v, e, record + row.offset,
                      row.size > INT_MAX ? INT_MAX : static_cast<int>(row.size));
            break;
        case Char: {
            char letter[2];
            getString(text, v, e, letter, sizeof letter);
            record[row.offset] = letter[0];
            break;
        }
        default:
            break;
    }
}

// 512-byte sectors to bytes, shifted as unsigned so that a negative column wraps instead of
// being undefined.
inline int64_t sectorsToBytes(int64_t sectors) {
    return static_cast<int64_t>(static_cast<uint64_t>(sectors) << 9);
}

// Key ends at the first ':', ' ' or '\n'.
inline int findKeyEnd(const char* text, int pos, int len) {
    while (pos < len) {
        const char c = text[pos];
        if (c == ':' || c == ' ' || c == '\n') break;
        ++pos;
    }
    return pos;
}

}  // namespace

const DataFileField kProcessStatusFields[] = {
        {"Name", offsetof(ProcessStatusData, name), sizeof(ProcessStatusData::name), String},
        {"Tgid", offsetof(ProcessStatusData, tgid), 4, Int32},
        {"Ngid", offsetof(ProcessStatusData, ngid), 4, Int32},
        {"Pid", offsetof(ProcessStatusData, pid), 4, Int32},
        {"PPid", offsetof(ProcessStatusData, ppid), 4, Int32},
        {"TracerPid", offsetof(ProcessStatusData, tracerPid), 4, Int32},
        {"FDSize", offsetof(ProcessStatusData, fdSize), 4, Int32},
        {"VmPeak", offsetof(ProcessStatusData, vmPeak), 4, KiloBytes32},
        {"VmSize", offsetof(ProcessStatusData, vmSize), 4, KiloBytes32},
        {"VmLck", offsetof(ProcessStatusData, vmLck), 4, KiloBytes32},
        {"VmPin", offsetof(ProcessStatusData, vmPin), 4, KiloBytes32},
        {"VmHWM", offsetof(ProcessStatusData, vmHwm), 4, KiloBytes32},
        {"VmRSS", offsetof(ProcessStatusData, vmRss), 4, KiloBytes32},
        {"RssAnon", offsetof(ProcessStatusData, rssAnon), 4, KiloBytes32},
        {"RssFile", offsetof(ProcessStatusData, rssFile), 4, KiloBytes32},
        {"RssShmem", offsetof(ProcessStatusData, rssShmem), 4, KiloBytes32},
        {"VmData", offsetof(ProcessStatusData, vmData), 4, KiloBytes32},
        {"VmStk", offsetof(ProcessStatusData, vmStk), 4, KiloBytes32},
        {"VmExe", offsetof(ProcessStatusData, vmExe), 4, KiloBytes32},
        {"VmLib", offsetof(ProcessStatusData, vmLib), 4, KiloBytes32},
        {"VmPTE", offsetof(ProcessStatusData, vmPte), 4, KiloBytes32},
        {"VmSwap", offsetof(ProcessStatusData, vmSwap), 4, KiloBytes32},
        {"HugetlbPages", offsetof(ProcessStatusData, hugetlbPages), 4, KiloBytes32},
        {"Threads", offsetof(ProcessStatusData, threads), 4, Int32},
        {"voluntary_ctxt_switches", offsetof(ProcessStatusData, voluntaryCtxtSwitches), 8, UInt64},
        {"nonvoluntary_ctxt_switches", offsetof(ProcessStatusData, nonvoluntaryCtxtSwitches), 8,
         UInt64},
        {"State", offsetof(ProcessStatusData, state), 1, Char},
};
const int kProcessStatusFieldCount = sizeof kProcessStatusFields / sizeof kProcessStatusFields[0];

const DataFileField kVmStatFields[] = {
        {"pswpin", offsetof(VmStatData, pswpin), 8, UInt64},
        {"pswpout", offsetof(VmStatData, pswpout), 8, UInt64},
};
const int kVmStatFieldCount = sizeof kVmStatFields / sizeof kVmStatFields[0];

// Starts on a 64-byte boundary: how fast its loops run depends on where they fall against those
// boundaries (16 bytes off cost a fifth of a vmstat parse), and so no longer on the code before it.
__attribute__((aligned(64))) void parse(const char* text, int len, const DataFileField* fields,
                                        int nfields, void* out) {
    if (len < 1) return;
    char* record = static_cast<char*>(out);
    const RowIndex rows(fields, nfields);
    int pos = 0;
    while (pos < len) {
        const int k = findKeyEnd(text, pos, len);
        const int v = k + 1;
        if (v >= len) return;  // the last line has no value
        const void* newline = memchr(text + v, '\n', static_cast<size_t>(len - v));
        const int e = newline ? static_cast<int>(static_cast<const char*>(newline) - text) : len;
        // A line without ':' or ' ' ends its key at its own newline, so the next line becomes
        // its value and is never looked up itself (an empty line likewise swallows the next).
        if (nfields >= 1 && k != pos && v < e) {
            const DataFileField* row = rows.find(text + pos, k - pos);
            if (row != nullptr) convert(text, v, e, *row, record);
        }
        pos = e + 1;
    }
}

uint64_t getNumber(const char* s, int start, int end) {
    int stop;
    bool found;
    return scanNumber(s, start, end, &stop, &found);
}

uint64_t getByteCount(const char* s, int start, int end) {
    return scanByteCount(s, start, end);
}

void getString(const char* s, int start, int end, char* buf, int bufSize) {
    while (start < end && isBlank(s[start])) ++start;
    while (end > start && isBlank(s[end - 1])) --end;
    if (start >= end || bufSize < 2) {
        buf[0] = '\0';
        return;
    }
    const int length = end - start < bufSize - 1 ? end - start : bufSize - 1;
    memcpy(buf, s + start, static_cast<size_t>(length));
    buf[length] = '\0';
}

bool isNumber(const char* s) {
    if (s == nullptr || *s == '\0') return false;
    for (; *s != '\0'; ++s) {
        if (!isDigit(*s)) return false;
    }
    return true;
}

bool parsePid(const char* name, int* pid) {
    if (!isNumber(name)) return false;
    int64_t value = 0;
    for (const char* c = name; *c != '\0'; ++c) {
        value = value * 10 + (*c - '0');
        if (value > INT_MAX) return false;
    }
    *pid = static_cast<int>(value);
    return true;
}

void parseProcessStatusData(const char* text, int len, ProcessStatusData* out) {
    parse(text, len, kProcessStatusFields, kProcessStatusFieldCount, out);
}

void parseVmStatData(const char* text, int len, VmStatData* out) {
    parse(text, len, kVmStatFields, kVmStatFieldCount, out);
    // The kernel counts pages; a 4 KiB page is assumed rather than queried.
    out->pswpin *= 4;
    out->pswpout *= 4;
}

int parseBlockDeviceStatData(const char* text, BlockDeviceStatData* out) {
    const int count = sscanf(text, "%ld %ld %ld %ld %ld %ld %ld %ld %ld %ld %ld %ld %ld %ld %ld",
                             &out->readIos, &out->readMerges, &out->readBytes, &out->readTicks,
                             &out->writeIos, &out->writeMerges, &out->writeBytes, &out->writeTicks,
                             &out->inFlight, &out->ioTicks, &out->timeInQueue, &out->discardIos,
                             &out->discardMerges, &out->discardBytes, &out->discardTicks);
    if (count != 15) {
        memset(out, 0, sizeof *out);
        return count;
    }
    out->readBytes = sectorsToBytes(out->readBytes);
    out->writeBytes = sectorsToBytes(out->writeBytes);
    out->discardBytes = sectorsToBytes(out->discardBytes);
    return count;
}

int parseZramStatData(const char* text, ZramStatData* out) {
    const int count = sscanf(text, "%ld %ld %ld %ld %ld %ld %ld %ld %ld %ld", &out->origDataSize,
                             &out->comprDataSize, &out->memUsedTotal, &out->memLimit,
                             &out->memUsedMax, &out->samePages, &out->pagesCompacted,
                             &out->hugePages, &out->hugePagesSince, &out->column10);
    if (count != 10) memset(out, 0, sizeof *out);
    return count;
}

}  // namespace procfsutils::internal
