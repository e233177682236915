#include "procfsutils/ProcessFiles.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace {

using namespace procfsutils::processfiles;

// utime, stime, starttime; empty when the text gives none.
std::vector<unsigned long long> times(const std::string& text) {
    const auto t = statTimes(text.c_str(), text.size());
    if (!t) return {};
    return {t->utime, t->stime, t->starttime};
}

TEST(ProcessFiles, ProgramNameIsTheFirstBlankSeparatedTokenBeforeTheFirstNul) {
    const auto name = [](const std::string& text) { return programName(text.c_str(), text.size()); };
    EXPECT_EQ(name(std::string("/system/bin/init\0second_stage\0", 30)), "/system/bin/init");
    EXPECT_EQ(name(std::string("/data/local/my (odd) proc\0", 26)), "/data/local/my");
    EXPECT_EQ(name("  lead tail"), "lead");
    for (const std::string& none : {std::string(), std::string("   "), std::string("\0ab", 3)}) {
        EXPECT_EQ(name(none), std::nullopt) << none.size();
    }
}

TEST(ProcessFiles, OomScoreAdjReadsOneDecimalInteger) {
    EXPECT_EQ(oomScoreAdj("-800\n"), -800);
    EXPECT_EQ(oomScoreAdj(" +12 x"), 12);
    EXPECT_EQ(oomScoreAdj("n/a\n"), std::nullopt);
    EXPECT_EQ(oomScoreAdj(""), std::nullopt);
}

// utime, stime and starttime are fields 14, 15 and 22, counted from the word after the command
// without compensating for blanks inside it, within 256 bytes after a command of at most 255.
TEST(ProcessFiles, StatTimesAreFields14_15And22CountedAsTheScanDoes) {
    using Times = std::vector<unsigned long long>;
    const std::string fields = " 4 5 6 7 8 9 10 11 12 13 14 15 16 17 18 19 20 21 22";
    const std::pair<std::string, Times> rows[] = {
            {"1 (init) S 1 1 1 0 -1 4194560 500 0 40 900 250 130 0 0 20 0 1 0 5 99\n",
             {250, 130, 5}},
            {"1 (init) S 1 2 3", {0, 0, 0}},
            {"1 (init)", {}},  // nothing after the command
            {"", {}},
            // "(my (odd) proc)" splits into three words: fields 14, 15 and 22 land on the
            // kernel's majflt (17), cmajflt (29) and num_threads (4).
            {"300 (my (odd) proc) R 1 300 300 0 -1 4194560 500 0 17 29 1234 567 0 0 20 0 4 0 8900 "
             "1",
             {17, 29, 4}},
            // Without a pid the scan stops before the first word, which then counts as field 3.
            {"x 4 5 6 7 8 9 10 11 12 13 14 15 16 17 18 19 20 21 22", {14, 15, 22}},
            {"1 (c) S" + std::string(240, ' ') + fields, {0, 0, 0}},  // beyond the 256 bytes
            {"1 " + std::string(255, 'c') + fields, {15, 16, 0}},
            {"1 " + std::string(256, 'c') + fields, {14, 15, 22}},  // its 256th byte is field 3
    };
    for (const auto& [text, expected] : rows) EXPECT_EQ(times(text), expected) << text;
}

}  // namespace
