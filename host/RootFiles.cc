#include "RootFiles.h"

#include <dirent.h>
#include <sys/stat.h>

#include <functional>
#include <vector>

#include "SysfsHealth.h"

namespace host {
namespace {

const char* specialKind(mode_t mode) {
    if (S_ISFIFO(mode)) return "a FIFO";
    if (S_ISSOCK(mode)) return "a socket";
    if (S_ISCHR(mode)) return "a character device";
    if (S_ISBLK(mode)) return "a block device";
    return nullptr;
}

bool isNumber(const std::string& name) {
    return !name.empty() && name.find_first_not_of("0123456789") == std::string::npos;
}

bool startsWith(const std::string& text, const char* prefix) {
    return text.rfind(prefix, 0) == 0;
}

// Checks device paths under one root, within the budget of paths to look at.
class Search {
public:
    explicit Search(std::string root) : root_(std::move(root)) {}

    void check(const std::string& path) {
        if (done()) return;
        ++checked_;
        struct stat info {};
        if (stat((root_ + path).c_str(), &info) != 0) return;
        if (const char* kind = specialKind(info.st_mode)) found_ = path + " is " + kind;
    }
    // `dir`'s files of these names.
    void files(const std::string& dir, const std::vector<std::string>& names) {
        for (const auto& name : names) check(dir + "/" + name);
    }
    // `visit(entry path)` for every entry of `dir` whose name `admits`.
    void entries(const std::string& dir, const std::function<bool(const std::string&)>& admits,
                 const std::function<void(const std::string&)>& visit) {
        if (done()) return;
        DIR* listing = opendir((root_ + dir).c_str());
        if (listing == nullptr) return;
        std::vector<std::string> names;
        while (const dirent* entry = readdir(listing)) {
            const std::string name = entry->d_name;
            if (name != "." && name != ".." && admits(name)) names.push_back(name);
        }
        closedir(listing);
        for (const auto& name : names) visit(dir + "/" + name);
    }
    const std::optional<std::string>& found() const { return found_; }

private:
    bool done() const { return found_ || checked_ >= kMaxRootFilesChecked; }

    std::string root_;
    size_t checked_ = 0;
    std::optional<std::string> found_;
};

const auto kAny = [](const std::string&) { return true; };

void searchProc(Search& search) {
    search.files("/proc", {"meminfo", "vmstat"});
    search.files("/proc/pressure", {"memory"});
    search.entries("/proc", isNumber, [&search](const std::string& process) {
        search.files(process, {"status", "cmdline", "stat", "oom_score_adj"});
    });
}

void searchSys(Search& search) {
    search.entries("/sys/block", kAny, [&search](const std::string& device) {
        search.files(device, {"stat", "mm_stat"});
    });
    search.files("/sys/devices/virtual/block/zram0",
                 {"idlehisto", "idle_cluster_sz", "simulated_bd_stat", "calculate_idle_pg_stats"});
    const std::vector<std::string> attributes(std::begin(sim::powersupply::kAttributeFiles),
                                              std::end(sim::powersupply::kAttributeFiles));
    search.entries("/sys/class/power_supply", kAny,
                   [&](const std::string& supply) { search.files(supply, attributes); });
    const auto thermalFile = [](const std::string& name) {
        return name == "type" || name == "temp" || name == "cur_state" ||
               startsWith(name, "trip_point_");
    };
    search.entries(
            "/sys/class/thermal",
            [](const std::string& name) {
                return startsWith(name, "thermal_zone") || startsWith(name, "cooling_device");
            },
            [&](const std::string& entry) {
                search.entries(entry, thermalFile,
                               [&search](const std::string& file) { search.check(file); });
            });
}

}  // namespace

std::optional<std::string> findSpecialFile(const std::string& root) {
    Search search(root);
    searchProc(search);
    searchSys(search);
    return search.found();
}

}  // namespace host
