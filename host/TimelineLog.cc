#include "TimelineLog.h"

#include <android/log.h>

#include "HostSideWork.h"
#include "ProviderCall.h"
#include "SysfsText.h"

namespace host {
namespace {

struct Sinks {
    Output& output;
    RunSummary& summary;
};

Sinks* g_sinks = nullptr;  // set while a TimelineLog exists

char priorityLetter(int priority) {
    static const char kLetters[] = "??VDIWEFS";
    return priority >= 0 && priority <= 8 ? kLetters[priority] : 'F';
}

void timelineLogger(const struct __android_logger_data* data, const char* message) {
    const sim::HostSideWork printing;
    const char letter = priorityLetter(data->priority);
    g_sinks->summary.countLog(ProviderCall::current(), letter);
    g_sinks->output.write(
            data->tag ? data->tag : "", "log",
            nlohmann::ordered_json{{"priority", std::string(1, letter)}, {"text", message}});
}

}  // namespace

const std::vector<std::string>& logTags() {
    // The library's (xrlogger's and its SDK module loader's) and the sysfs HALs'.
    static const std::vector<std::string> tags = {
            "Vistrel", "PlatkitLoader", sim::sysfs::kHealthLogTag, sim::sysfs::kThermalLogTag};
    return tags;
}

TimelineLog::TimelineLog(Output& output, RunSummary& summary, int minimumPriority) {
    g_sinks = new Sinks{output, summary};
    __android_log_set_minimum_priority(minimumPriority);
    __android_log_set_logger(timelineLogger);
}

TimelineLog::~TimelineLog() {
    __android_log_set_logger(__android_log_stderr_logger);
    delete g_sinks;
    g_sinks = nullptr;
}

}  // namespace host
