// Table-driven, allocation-free parsing of kernel "key: value" text and fixed-column stat lines.
// Positions are int byte indexes into the text; `end` is exclusive.
#pragma once

#include <cstddef>
#include <cstdint>

#include "procfsutils/ProcFsRecords.h"

namespace procfsutils::internal {

enum DataFileFieldType : uint32_t {
    ByteCount = 0,    // size 8: bytes, optional unit suffix
    KiloBytes32 = 1,  // size 4: KiB, 4294967295 when the byte count is >= 2^41
    KiloBytes64 = 2,  // size 8: KiB
    Int32 = 3,        // size 4: plain number, -1 when above 2147483647
    UInt64 = 4,       // size 8: plain number
    String = 5,       // size = capacity of the char array, NUL included
    Char = 6,         // size ignored: first character of the trimmed value, or 0
};

// One row of a parse table: a key at the start of a line and where its value goes in the record.
struct DataFileField {
    const char* name;
    size_t offset;
    size_t size;
    uint32_t type;
};

void parse(const char* text, int len, const DataFileField* fields, int nfields, void* out);
uint64_t getNumber(const char* s, int start, int end);
uint64_t getByteCount(const char* s, int start, int end);
void getString(const char* s, int start, int end, char* buf, int bufSize);
bool isNumber(const char* s);
// A /proc entry name that is a process id: isNumber() and within int range ("007" is 7). False,
// with *pid untouched, for any other name.
bool parsePid(const char* name, int* pid);

void parseProcessStatusData(const char* text, int len, ProcessStatusData* out);
void parseVmStatData(const char* text, int len, VmStatData* out);
int parseBlockDeviceStatData(const char* text, BlockDeviceStatData* out);
int parseZramStatData(const char* text, ZramStatData* out);

// The parse tables, in their row order (exposed for tests and benchmarks).
extern const DataFileField kProcessStatusFields[];
extern const int kProcessStatusFieldCount;
extern const DataFileField kVmStatFields[];
extern const int kVmStatFieldCount;

}  // namespace procfsutils::internal
