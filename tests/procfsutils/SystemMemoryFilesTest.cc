#include "procfsutils/SystemMemoryFiles.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

namespace {

using testing::ElementsAre;
namespace files = procfsutils::systemmemoryfiles;

std::vector<float> averages(const std::string& text) {
    const files::PressureAverages a = files::pressureAverages(text.c_str(), text.size());
    return {a.someAvg10, a.someAvg60, a.someAvg300, a.fullAvg10, a.fullAvg60, a.fullAvg300};
}

TEST(SystemMemoryFiles, PressureRecordsSetTheirThreeAveragesUntilAMalformedOne) {
    const std::vector<float> none(6, -1.0f);
    const std::pair<const char*, std::vector<float>> rows[] = {
            {"full avg10=0.31 avg60=0.22 avg300=0.10 total=40211981\n"
             "some avg10=1.25 avg60=0.87 avg300=0.40 total=91283412\n",
             {1.25f, 0.87f, 0.40f, 0.31f, 0.22f, 0.10f}},
            {"", none},
            {"half avg10=1 avg60=2 avg300=3 total=4\nsome avg10=5 avg60=6 avg300=7 total=8\n",
             {5, 6, 7, -1, -1, -1}},  // a record of another word is passed over
            {"some avg10=5 avg60=6 total=8\nfull avg10=1 avg60=2 avg300=3 total=4\n", none},
    };
    for (const auto& [text, expected] : rows) EXPECT_EQ(averages(text), expected) << text;
}

TEST(SystemMemoryFiles, ValueListsSumPastTheLastEntryOrStopAtTheFirstNonNumber) {
    uint32_t summed[4] = {9, 9, 9, 9};
    files::summedValues("1 2 3 4 5 4294967295 x 7", summed, 4);
    EXPECT_THAT(summed, ElementsAre(1, 2, 3, 8)) << "wrapping, until the x";
    files::summedValues("6 7", summed, 4);
    EXPECT_THAT(summed, ElementsAre(6, 7, 3, 8)) << "short: the rest stays";
    uint64_t leading[4] = {9, 9, 9, 9};
    files::leadingValues("5 x 6", leading, 4);
    EXPECT_THAT(leading, ElementsAre(5, 9, 9, 9));
    files::leadingValues("1 2 3 4 5", leading, 4);
    EXPECT_THAT(leading, ElementsAre(1, 2, 3, 4));
}

}  // namespace
