#include "procfsutils/ProcFsParserInternal.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstddef>
#include <cstring>
#include <string>
#include <utility>

namespace {

using namespace procfsutils;
using namespace procfsutils::internal;

ProcessStatusData status(const std::string& text) {
    ProcessStatusData out{};
    parseProcessStatusData(text.data(), static_cast<int>(text.size()), &out);
    return out;
}
uint64_t bytes(const std::string& s) {
    return getByteCount(s.data(), 0, static_cast<int>(s.size()));
}
std::string trimmed(const std::string& s, int bufSize) {
    std::string buf(static_cast<size_t>(bufSize), '#');
    getString(s.data(), 0, static_cast<int>(s.size()), buf.data(), bufSize);
    return buf.c_str();
}

TEST(ProcFsScanners, Scanners) {
    EXPECT_EQ(getNumber("ab-12cd34", 0, 9), 12u) << "non-digits skipped, the first run read";
    EXPECT_EQ(getNumber("12345", 1, 3), 23u) << "bounded by [start, end)";
    EXPECT_EQ(getNumber(" kB", 0, 3), 0u);
    EXPECT_EQ(getNumber("18446744073709551616", 0, 20), 0u) << "2^64 wraps";
    // The unit letter is looked up one past the first character after the digits.
    EXPECT_EQ(bytes("\t  512 kB"), 512u << 10);
    EXPECT_EQ(bytes(" 2 MB"), 2u << 20);
    EXPECT_EQ(bytes("3 g"), uint64_t{3} << 30);
    EXPECT_EQ(bytes("512kB"), 512u);
    EXPECT_EQ(bytes("512  kB"), 512u);
    EXPECT_EQ(bytes("512 "), 512u);
    EXPECT_EQ(getByteCount("512 kB", 0, 4), 512u) << "unit outside the range";
    EXPECT_EQ(trimmed("\t surface flinger \t ", 32), "surface flinger");
    EXPECT_EQ(trimmed("abcdef", 4), "abc");
    EXPECT_EQ(trimmed(" \t ", 32), "");
    EXPECT_EQ(trimmed("abc", 1), "");
    EXPECT_EQ(trimmed("a\n", 8), "a\n") << "only spaces and tabs are blanks";
    EXPECT_TRUE(isNumber("4321"));
    for (const char* notPid : {static_cast<const char*>(nullptr), "", "1a", "self", "-1"}) {
        EXPECT_FALSE(isNumber(notPid)) << (notPid ? notPid : "null");
    }
    for (const auto& [name, expected] :
         {std::pair{"007", 7}, {"2147483647", INT_MAX}, {"2147483648", -1}, {"1a", -1}}) {
        int pid = -1;  // left as it is for a name that is no process id
        EXPECT_EQ((parsePid(name, &pid), pid), expected) << name;
    }
}

TEST(ProcFsParse, StatusConversions) {
    EXPECT_EQ(status("VmRSS:\t  123456 kB\n").vmRss, 123456u);
    EXPECT_EQ(status("VmRSS:\t2 MB\n").vmRss, 2048u);
    EXPECT_EQ(status("VmRSS: 5 B\n").vmRss, 0u);
    EXPECT_EQ(status("VmRSS:\t2147483647 kB\n").vmRss, 2147483647u);
    EXPECT_EQ(status("VmRSS:\t2147483648 kB\n").vmRss, 4294967295u) << "2^41 bytes saturates";
    EXPECT_EQ(status("Threads:\t2147483647\n").threads, 2147483647);
    EXPECT_EQ(status("Threads:\t3000000000\n").threads, -1);
    EXPECT_EQ(status("Threads:\t18446744073709551614\n").threads, -2) << "read as signed 64-bit";
    EXPECT_EQ(status("voluntary_ctxt_switches:\t18446744073709551615").voluntaryCtxtSwitches,
              UINT64_MAX);
    EXPECT_EQ(status("State:\tS (sleeping)\n").state, 'S');
    EXPECT_EQ(status("State:\t \t\n").state, 0);
    EXPECT_STREQ(status("Name:\tsurfaceflinger   \n").name, "surfaceflinger");
    EXPECT_STREQ(status("Name:\t" + std::string(40, 'x')).name, std::string(31, 'x').c_str());
    EXPECT_STREQ(status("Name:\tirq/24-ACPI:Ged\n").name, "irq/24-ACPI:Ged");
}

TEST(ProcFsParse, LineRules) {
    EXPECT_STREQ(status("Pid:\t1\nName:").name, "") << "last line without a value";
    const ProcessStatusData swallowed = status("Ngid\nPid:\t7\nTgid:\t9\n");
    EXPECT_EQ(swallowed.ngid, 7) << "a key without colon or blank takes the next line";
    EXPECT_EQ(swallowed.pid, 0);
    EXPECT_EQ(swallowed.tgid, 9);
    const ProcessStatusData afterEmpty = status("\nThreads:\t4\nPPid:\t5\nThreads:\n");
    EXPECT_EQ(afterEmpty.threads, 0) << "an empty line swallows the next; empty values skip";
    EXPECT_EQ(afterEmpty.ppid, 5);

    EXPECT_EQ(status("Vm: 1 MB\n").vmPeak, 1024u) << "a prefix of VmPeak";
    EXPECT_EQ(status("P: 6\n").pid, 6) << "Pid precedes PPid";
    EXPECT_EQ(status("T: 6\n").tgid, 6) << "Tgid precedes TracerPid and Threads";
    EXPECT_EQ(status("vol 6\n").voluntaryCtxtSwitches, 6u) << "a blank ends a key too";
    const ProcessStatusData longer = status("VmRSSx: 5 kB\nPidx: 5\nName\tx: y\n");
    EXPECT_EQ(longer.vmRss, 0u) << "a key longer than a name never matches";
    EXPECT_EQ(longer.pid, 0);
    EXPECT_STREQ(longer.name, "");
    EXPECT_EQ(status(std::string("Pid\0junk: 4\n", 12)).pid, 4) << "strncmp stops at the NUL";

    const std::string text = "Threads:\t12345\n";
    ProcessStatusData out{};
    parseProcessStatusData(text.data(), 11, &out);
    EXPECT_EQ(out.threads, 12) << "bounded by len";
}

// `char` is signed on x86-64 and unsigned on arm64: bytes from 0x80 up (UTF-8 process names,
// garbage) must parse alike on both, and never index a table by a negative character.
TEST(ProcFsParse, BytesFrom0x80ParseAlikeOnEveryArchitecture) {
    const ProcessStatusData named = status("Name:\t\xe2\x80\xa2 app\xff\nState:\t\xe9\n");
    EXPECT_STREQ(named.name, "\xe2\x80\xa2 app\xff");
    EXPECT_EQ(static_cast<unsigned char>(named.state), 0xe9);
    const ProcessStatusData numbers =
            status("\xd0\x9f: 9\nPid:\t\xff"
                   "42\xff\nTgid:\t\xb9\n");
    EXPECT_EQ(numbers.pid, 42);
    EXPECT_EQ(numbers.tgid, 0) << "0xb9 is no digit in any locale here";

    struct Accented {
        int32_t ete;
        int32_t plain;
    };
    const DataFileField fields[] = {
            {"\xc3\xa9t\xc3\xa9", offsetof(Accented, ete), 4, Int32},
            {"plain", offsetof(Accented, plain), 4, Int32},
    };
    const std::string text = "\xff\xfe: 1\n\xc3\xa9t\xc3\xa9: 7\nplain: 8\n";
    Accented out{};
    parse(text.data(), static_cast<int>(text.size()), fields, 2, &out);
    EXPECT_EQ(out.ete, 7);
    EXPECT_EQ(out.plain, 8);
}

struct Wide {
    uint64_t byteCount;
    int64_t kiloBytes64;
    uint64_t wrongSize;
    char text[8];
    char letter;
    uint32_t unknown;
};

TEST(ProcFsParse, RowTypes) {
    const DataFileField fields[] = {
            {"bytes", offsetof(Wide, byteCount), 8, ByteCount},
            {"kb64", offsetof(Wide, kiloBytes64), 8, KiloBytes64},
            {"wrong", offsetof(Wide, wrongSize), 4, UInt64},
            {"wrongkb", offsetof(Wide, wrongSize), 8, KiloBytes32},
            {"text", offsetof(Wide, text), sizeof(Wide::text), String},
            {"letter", offsetof(Wide, letter), 99, Char},
            {"unknown", offsetof(Wide, unknown), 4, 7},
    };
    const std::string text =
            "bytes 3 kB\nkb64 18446744073709551615\nwrong 5\nwrongkb 9 kB\ntext  long text  \n"
            "letter  xyz\nunknown 4\n";
    Wide out{};
    parse(text.data(), static_cast<int>(text.size()), fields, 7, &out);
    EXPECT_EQ(out.byteCount, 3072u);
    EXPECT_EQ(out.kiloBytes64, 0) << "-1 bytes / 1024 truncates toward zero";
    EXPECT_EQ(out.wrongSize, 0u);
    EXPECT_STREQ(out.text, "long te");
    EXPECT_EQ(out.letter, 'x') << "Char ignores the size";
    EXPECT_EQ(out.unknown, 0u);
    const std::string big = "kb64 9223372036854775808\n";
    parse(big.data(), static_cast<int>(big.size()), fields, 7, &out);
    EXPECT_EQ(out.kiloBytes64, INT64_MIN / 1024);
}

TEST(ProcFsParse, FixedRecords) {
    VmStatData vm{};
    const std::string text = "nr_free_pages 5\npswpin 1000\npswpout 7\n";
    parseVmStatData(text.data(), static_cast<int>(text.size()), &vm);
    EXPECT_EQ(vm.pswpin, 4000u);
    EXPECT_EQ(vm.pswpout, 28u);

    BlockDeviceStatData block;
    EXPECT_EQ(parseBlockDeviceStatData("1 2 3 4 5 6 7 8 9 10 11 12 13 14 15 16 17\n", &block), 15);
    const int64_t converted[15] = {1, 2,  3 * 512, 4,  5,  6,        7 * 512, 8,
                                   9, 10, 11,      12, 13, 14 * 512, 15};
    EXPECT_EQ(memcmp(&block, converted, sizeof block), 0);
    EXPECT_EQ(parseBlockDeviceStatData("1 2 3 4 5 6 7 8 9 10 11\n", &block), 11);
    EXPECT_EQ(block.readIos, 0);
    EXPECT_EQ(block.timeInQueue, 0);
    EXPECT_EQ(parseBlockDeviceStatData("", &block), EOF);

    ZramStatData zram;
    EXPECT_EQ(parseZramStatData("-1 2 3 4 5 6 7 8 9 10 11\n", &zram), 10);
    const int64_t asRead[10] = {-1, 2, 3, 4, 5, 6, 7, 8, 9, 10};
    EXPECT_EQ(memcmp(&zram, asRead, sizeof zram), 0);
    EXPECT_EQ(parseZramStatData("4096 74 12288 0 12288 0 0 0 0\n", &zram), 9);
    const ZramStatData zero{};
    EXPECT_EQ(memcmp(&zram, &zero, sizeof zram), 0);
}

}  // namespace
