#include "procfsutils/ProcFsParserInternal.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstring>
#include <string>

namespace {

using namespace procfsutils;
using namespace procfsutils::internal;

ProcessStatusData status(const std::string& text) {
    ProcessStatusData out;
    memset(&out, 0, sizeof out);
    parseProcessStatusData(text.data(), static_cast<int>(text.size()), &out);
    return out;
}

uint64_t number(const std::string& s) { return getNumber(s.data(), 0, static_cast<int>(s.size())); }
uint64_t bytes(const std::string& s) { return getByteCount(s.data(), 0, static_cast<int>(s.size())); }
std::string trimmed(const std::string& s, int bufSize) {
    std::string buf(static_cast<size_t>(bufSize), '#');
    getString(s.data(), 0, static_cast<int>(s.size()), buf.data(), bufSize);
    return buf.c_str();
}

TEST(ProcFsScanners, NumbersSkipEverythingButDigitsAndWrap) {
    EXPECT_EQ(number("\t  123456 kB"), 123456u);
    EXPECT_EQ(number("abc12def34"), 12u);
    EXPECT_EQ(number("-5"), 5u);
    EXPECT_EQ(number(" kB"), 0u);
    EXPECT_EQ(number(""), 0u);
    EXPECT_EQ(number("18446744073709551616"), 0u) << "2^64 wraps to 0";
    EXPECT_EQ(getNumber("12345", 1, 3), 23u) << "bounded by [start, end)";
}

TEST(ProcFsScanners, UnitLetterIsLookedUpOnePastTheCharacterAfterTheDigits) {
    EXPECT_EQ(bytes("\t  512 kB"), 512u << 10);
    EXPECT_EQ(bytes(" 2 MB"), 2u << 20);
    EXPECT_EQ(bytes("3 g"), uint64_t{3} << 30);
    EXPECT_EQ(bytes("512kB"), 512u) << "'B' is examined, not 'k'";
    EXPECT_EQ(bytes("512  kB"), 512u) << "two blanks: the second blank is examined";
    EXPECT_EQ(bytes("512 xB"), 512u);
    EXPECT_EQ(bytes("512 "), 512u) << "no character one past the blank";
    EXPECT_EQ(getByteCount("512 kB", 0, 5), 512u << 10);
    EXPECT_EQ(getByteCount("512 kB", 0, 4), 512u) << "unit outside the range";
    EXPECT_EQ(bytes("kB"), 0u);
}

TEST(ProcFsScanners, StringsAreTrimmedOfBlanksAndTruncated) {
    EXPECT_EQ(trimmed("\t surface flinger \t ", 32), "surface flinger");
    EXPECT_EQ(trimmed("abcdef", 4), "abc");
    EXPECT_EQ(trimmed(" \t ", 32), "");
    EXPECT_EQ(trimmed("abc", 1), "");
    EXPECT_EQ(trimmed("abc", 2), "a");
    EXPECT_EQ(trimmed("a\nb", 8), "a\nb") << "only spaces and tabs are blanks";
}

TEST(ProcFsScanners, IsNumberAcceptsOnlyNonEmptyDigitStrings) {
    EXPECT_TRUE(isNumber("0"));
    EXPECT_TRUE(isNumber("4321"));
    EXPECT_FALSE(isNumber(nullptr));
    EXPECT_FALSE(isNumber(""));
    EXPECT_FALSE(isNumber("1a"));
    EXPECT_FALSE(isNumber("self"));
    EXPECT_FALSE(isNumber("-1"));
}

TEST(ProcFsParse, StatusConversionsAndSaturations) {
    EXPECT_EQ(status("VmRSS:\t  123456 kB\n").vmRss, 123456u);
    EXPECT_EQ(status("VmRSS:\t2 MB\n").vmRss, 2048u);
    EXPECT_EQ(status("VmRSS: 5 B\n").vmRss, 0u);
    EXPECT_EQ(status("VmRSS:\t2147483647 kB\n").vmRss, 2147483647u);
    EXPECT_EQ(status("VmRSS:\t2147483648 kB\n").vmRss, 4294967295u) << "2^41 bytes saturates";
    EXPECT_EQ(status("VmRSS:\t3000000000 kB\n").vmRss, 4294967295u);
    EXPECT_EQ(status("Threads:\t2147483647\n").threads, 2147483647);
    EXPECT_EQ(status("Threads:\t3000000000\n").threads, -1);
    EXPECT_EQ(status("Threads:\t18446744073709551614\n").threads, -2) << "read as signed 64-bit";
    EXPECT_EQ(status("voluntary_ctxt_switches:\t18446744073709551615\n").voluntaryCtxtSwitches,
              UINT64_MAX);
    EXPECT_EQ(status("State:\tS (sleeping)\n").state, 'S');
    EXPECT_EQ(status("State:\t \t\n").state, 0);
    EXPECT_STREQ(status("Name:\tsurfaceflinger   \n").name, "surfaceflinger");
    EXPECT_STREQ(status("Name:\t" + std::string(40, 'x') + "\n").name, std::string(31, 'x').c_str());
    EXPECT_STREQ(status("Name:\tirq/24-ACPI:Ged\n").name, "irq/24-ACPI:Ged") << "key ends at the first colon";
}

TEST(ProcFsParse, LineStructureRules) {
    // The last line without a value leaves the field unchanged.
    EXPECT_STREQ(status("Pid:\t1\nName:").name, "");
    EXPECT_EQ(status("Pid:\t1\nName:").pid, 1);
    // A key without colon or blank takes the next line as its value, which is not looked up.
    ProcessStatusData swallowed = status("Ngid\nPid:\t7\nTgid:\t9\n");
    EXPECT_EQ(swallowed.ngid, 7);
    EXPECT_EQ(swallowed.pid, 0);
    EXPECT_EQ(swallowed.tgid, 9);
    // An empty line swallows the line after it.
    ProcessStatusData afterEmpty = status("Pid:\t3\n\nThreads:\t4\nPPid:\t5\n");
    EXPECT_EQ(afterEmpty.threads, 0);
    EXPECT_EQ(afterEmpty.ppid, 5);
    // Empty values and unknown keys are skipped; the last line needs no newline.
    ProcessStatusData loose = status("Threads:\nUmask:\t0022\nPid:\t8");
    EXPECT_EQ(loose.threads, 0);
    EXPECT_EQ(loose.pid, 8);
    // Bounded by len even when the text goes on.
    const std::string text = "Threads:\t12345\n";
    ProcessStatusData out{};
    parseProcessStatusData(text.data(), 11, &out);
    EXPECT_EQ(out.threads, 12);
    parseProcessStatusData(text.data(), 0, &out);
    EXPECT_EQ(out.threads, 12);
}

TEST(ProcFsParse, KeysMatchByPrefixAndTheFirstRowWins) {
    EXPECT_EQ(status("Vm: 1 MB\n").vmPeak, 1024u) << "a prefix of VmPeak";
    EXPECT_EQ(status("V: 1 MB\n").vmPeak, 1024u);
    EXPECT_EQ(status("P: 6\n").pid, 6) << "Pid precedes PPid";
    EXPECT_EQ(status("T: 6\n").tgid, 6) << "Tgid precedes TracerPid and Threads";
    EXPECT_EQ(status("vol 6\n").voluntaryCtxtSwitches, 6u) << "a blank ends the key too";
    ProcessStatusData longer = status("VmRSSx: 5 kB\nPidx: 5\nName\tx: y\n");
    EXPECT_EQ(longer.vmRss, 0u) << "a key longer than a name never matches";
    EXPECT_EQ(longer.pid, 0);
    EXPECT_STREQ(longer.name, "");
    const std::string nulKey("Pid\0junk: 4\n", 12);
    EXPECT_EQ(status(nulKey).pid, 4) << "strncmp stops at the NUL after the full name";
}

struct Wide {
    uint64_t byteCount;
    int64_t kiloBytes64;
    uint64_t wrongSize;
    char text[8];
    char letter;
    uint32_t unknown;
};

TEST(ProcFsParse, CustomTablesWrongSizesAndUnknownTypes) {
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
    Wide out;
    memset(&out, 0, sizeof out);
    parse(text.data(), static_cast<int>(text.size()), fields, 7, &out);
    EXPECT_EQ(out.byteCount, 3072u);
    EXPECT_EQ(out.kiloBytes64, 0) << "-1 bytes / 1024 truncates toward zero";
    EXPECT_EQ(out.wrongSize, 0u);
    EXPECT_STREQ(out.text, "long te");
    EXPECT_EQ(out.letter, 'x');
    EXPECT_EQ(out.unknown, 0u);

    const std::string big = "kb64 9223372036854775808\n";
    parse(big.data(), static_cast<int>(big.size()), fields, 7, &out);
    EXPECT_EQ(out.kiloBytes64, INT64_MIN / 1024);
    parse(text.data(), static_cast<int>(text.size()), fields, 0, &out);  // no rows: no effect
    EXPECT_EQ(out.kiloBytes64, INT64_MIN / 1024);
}

TEST(ProcFsParse, VmStatPagesBecomeKiB) {
    VmStatData out{};
    const std::string text = "nr_free_pages 5\npswpin 1000\npswpout 7\npgpgin 3\n";
    parseVmStatData(text.data(), static_cast<int>(text.size()), &out);
    EXPECT_EQ(out.pswpin, 4000u);
    EXPECT_EQ(out.pswpout, 28u);
}

TEST(ProcFsFixedColumns, BlockDeviceStatNeedsFifteenColumns) {
    BlockDeviceStatData out;
    const char* seventeen = "   1    2    3    4    5    6    7    8    9   10   11   12   13   14   15   16   17\n";
    EXPECT_EQ(parseBlockDeviceStatData(seventeen, &out), 15);
    const int64_t expected[15] = {1, 2, 3 * 512, 4, 5, 6, 7 * 512, 8, 9, 10, 11, 12, 13, 14 * 512, 15};
    EXPECT_EQ(memcmp(&out, expected, sizeof out), 0);

    memset(&out, 0x5a, sizeof out);
    EXPECT_EQ(parseBlockDeviceStatData("1 2 3 4 5 6 7 8 9 10 11\n", &out), 11);
    EXPECT_EQ(out.readIos, 0);
    EXPECT_EQ(out.timeInQueue, 0);
    EXPECT_EQ(out.discardTicks, 0);
    EXPECT_EQ(parseBlockDeviceStatData("", &out), EOF);
    EXPECT_EQ(parseBlockDeviceStatData("1 2 x", &out), 2);
    EXPECT_EQ(out.readMerges, 0);
}

TEST(ProcFsFixedColumns, ZramMmStatNeedsExactlyTenColumns) {
    ZramStatData out;
    EXPECT_EQ(parseZramStatData("1 2 3 4 5 6 7 8 9 10 11\n", &out), 10);
    const int64_t expected[10] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10};
    EXPECT_EQ(memcmp(&out, expected, sizeof out), 0);
    EXPECT_EQ(parseZramStatData("-4 2 3 4 5 6 7 8 9 10", &out), 10);
    EXPECT_EQ(out.origDataSize, -4) << "stored as read";

    memset(&out, 0x5a, sizeof out);
    EXPECT_EQ(parseZramStatData("4096 74 12288 0 12288 0 0 0 0\n", &out), 9);
    EXPECT_EQ(out.origDataSize, 0);
    EXPECT_EQ(out.hugePagesSince, 0);
    EXPECT_EQ(out.column10, 0);
}

}  // namespace
