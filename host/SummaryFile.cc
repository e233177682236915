#include "SummaryFile.h"

#include <cerrno>
#include <cstring>

namespace host {

using json = nlohmann::ordered_json;

std::unique_ptr<SummaryFile> SummaryFile::open(const std::string& path, std::string* error) {
    FILE* out = fopen(path.c_str(), "we");
    if (out == nullptr) {
        *error = "cannot write summary file '" + path + "': " + strerror(errno);
        return nullptr;
    }
    return std::unique_ptr<SummaryFile>(new SummaryFile(out, path));
}

SummaryFile::~SummaryFile() {
    if (out_ != nullptr) fclose(out_);
}

void SummaryFile::follow(Output& output) {
    output.observe([this](const Line& line) { keep(line); });
}

void SummaryFile::keep(const Line& line) {
    if (line.event != "record") return;
    threadsafety::MutexLock lock(mutex_);
    lastRecords_[line.source] = line.fields;
}

bool SummaryFile::write(const json& run, const RunSummary& summary, int64_t deviceNs,
                        int64_t longestPeriodNs, std::string* error) {
    json document = {{"run", run}};
    document.update(summary.toJson(deviceNs, longestPeriodNs));
    {
        threadsafety::MutexLock lock(mutex_);
        for (auto& [name, row] : document["providers"].items()) {
            const auto found = lastRecords_.find(name);
            row["lastRecord"] = found == lastRecords_.end() ? json() : found->second;
        }
    }
    const std::string text = document.dump(2) + "\n";
    const bool written = fputs(text.c_str(), out_) >= 0 && fflush(out_) == 0;
    int failure = written ? 0 : errno;
    if (fclose(out_) != 0 && failure == 0) failure = errno;
    out_ = nullptr;
    if (failure == 0) return true;
    *error = "cannot write summary file '" + path_ + "': " + strerror(failure);
    return false;
}

}  // namespace host
