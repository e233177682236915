// One scrape of the reference host's metrics endpoint (every provider's families at the default
// top N, served from what the host keeps in memory) against one scrape of Debian's
// prometheus-node-exporter with its default collectors, both over HTTP on loopback with the same
// client (libcurl, a connection per scrape, no compression), and the bytes each serves.
//
// What each side's CPU time covers: the host side is this process's CPU clock around the GETs,
// i.e. the client, the endpoint's server thread (civetweb, prometheus-cpp), gathering the kept
// families under each provider's lock and the run summary, and the text serialization; the host
// and its simulated headset are idle meanwhile. The node-exporter side is the same client's CPU
// plus the exporter process's user + system time over the GETs (/proc/PID/stat, clock ticks),
// i.e. reading /proc and /sys for every collector, and its serialization and HTTP.
//
// The host ran two simulated hours of every provider on the captured headset tree first, so
// every provider has a record. The program puts the build's simulated SDK modules on the
// library search path and re-executes itself, as the host does.
#include <android/log.h>
#include <arpa/inet.h>
#include <curl/curl.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdio>
#include <memory>
#include <string>

#include "BenchSupport.h"
#include "Headset.h"
#include "Host.h"
#include "MetricsEndpoint.h"
#include "RunMetrics.h"
#include "hostplatform/FsRoot.h"
#include "hostplatform/Properties.h"

namespace {

constexpr int64_t kHourNs = INT64_C(3600000000000);

double processCpuSeconds() {
    timespec now{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

// User + system time of process `pid`, in seconds (clock-tick resolution); -1 when gone.
double childCpuSeconds(pid_t pid) {
    char path[64];
    snprintf(path, sizeof(path), "/proc/%d/stat", pid);
    FILE* file = fopen(path, "re");
    if (file == nullptr) return -1;
    unsigned long user = 0, system = 0;
    const int read = fscanf(file, "%*d (%*[^)]) %*c %*d %*d %*d %*d %*d %*u %*u %*u %*u %*u %lu %lu",
                            &user, &system);
    fclose(file);
    return read == 2 ? static_cast<double>(user + system) / sysconf(_SC_CLK_TCK) : -1;
}

size_t appendBody(char* data, size_t size, size_t count, void* body) {
    static_cast<std::string*>(body)->append(data, size * count);
    return size * count;
}

// The body of a GET of `url`; empty when it did not answer 200.
std::string get(CURL* curl, const std::string& url) {
    std::string body;
    curl_easy_setopt(curl, CURLOPT_URL, url.c_str());
    curl_easy_setopt(curl, CURLOPT_WRITEFUNCTION, appendBody);
    curl_easy_setopt(curl, CURLOPT_WRITEDATA, &body);
    curl_easy_setopt(curl, CURLOPT_FORBID_REUSE, 1L);  // a connection per scrape, on both sides
    long status = 0;
    if (curl_easy_perform(curl) != CURLE_OK ||
        curl_easy_getinfo(curl, CURLINFO_RESPONSE_CODE, &status) != CURLE_OK || status != 200) {
        return "";
    }
    return body;
}

// prometheus-node-exporter on a free loopback port, killed with this program (BenchSupport).
pid_t startNodeExporter(int port) {
    const std::string address = "--web.listen-address=127.0.0.1:" + std::to_string(port);
    const pid_t parent = getpid();
    const pid_t child = fork();
    if (child == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        if (getppid() != parent) _exit(0);
        freopen("/dev/null", "w", stderr);
        execlp("prometheus-node-exporter", "prometheus-node-exporter", address.c_str(),
               static_cast<char*>(nullptr));
        _exit(127);
    }
    benchsupport::g_children[benchsupport::g_childCount] = child;
    benchsupport::g_childCount = benchsupport::g_childCount + 1;
    return child;
}

// A loopback port free a moment ago.
int freePort() {
    const int fd = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof(address);
    const bool bound = bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof(address)) == 0 &&
                       getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length) == 0;
    close(fd);
    return bound ? ntohs(address.sin_port) : 0;
}

// Serves the kept families of a host that ran two simulated hours of every provider.
struct ServedHost {
    FILE* sink = fopen("/dev/null", "w");
    host::HostClock clock{host::HostClock::Mode::Simulated};
    host::Output output{sink, false, [this] { return clock.deviceNs(); }};
    sim::Headset headset{sim::HeadsetConfig{}, [this] { return clock.deviceNs(); }};
    host::Host host{clock, output, headset, host::makeProviders({}, {}), kHourNs};
    std::unique_ptr<metrics::MetricsEndpoint> endpoint;

    ServedHost() {
        host.exportRecords({});
        host.run(2 * kHourNs);
        std::string error;
        endpoint = metrics::MetricsEndpoint::start(
                {"127.0.0.1", 0}, std::nullopt, [this] { return metrics::hostMetrics(host); },
                &error);
        if (!endpoint) fprintf(stderr, "MetricsScrapeBench: %s\n", error.c_str());
    }
    ~ServedHost() {
        endpoint.reset();
        fclose(sink);
    }
};

}  // namespace

int main(int argc, char** argv) {
    benchsupport::searchModulesIn(VISTREL_DEFAULT_SDK_DIR, argv);
    hostplatform::setFsRoot(VISTREL_SOURCE_DIR "/tests/data/headset-capture");
    hostplatform::setProperty("enable_fg_apps_cpu_events", "true");  // as the host does
    __android_log_set_minimum_priority(ANDROID_LOG_SILENT);
    for (int signal : benchsupport::kFatalSignals) ::signal(signal, benchsupport::onFatalSignal);
    atexit(benchsupport::killChildren);

    ServedHost served;
    const int port = freePort();
    const pid_t node = startNodeExporter(port);
    const std::string nodeUrl = "http://127.0.0.1:" + std::to_string(port) + "/metrics";
    CURL* curl = curl_easy_init();
    std::string ours, theirs;
    for (int tries = 0; tries < 100 && theirs.empty(); ++tries) {
        usleep(100000);
        theirs = get(curl, nodeUrl);
    }
    if (served.endpoint) ours = get(curl, served.endpoint->url());
    if (ours.empty() || theirs.empty()) {
        fprintf(stderr, "MetricsScrapeBench: no scrape from %s\n",
                ours.empty() ? "the host" : nodeUrl.c_str());
        return 1;
    }

    const auto scrapes = [curl](const std::string& url, int calls) {
        bool answered = true;
        for (int i = 0; i < calls; ++i) answered = !get(curl, url).empty() && answered;
        return answered;
    };
    const benchsupport::Pair pair{
            "scrape: vistrel-host endpoint vs node_exporter",
            [&](int calls) {
                const double start = processCpuSeconds();
                const bool answered = scrapes(served.endpoint->url(), calls);
                return answered ? processCpuSeconds() - start : -1;
            },
            [&](int calls) {
                const double nodeStart = childCpuSeconds(node), start = processCpuSeconds();
                const bool answered = scrapes(nodeUrl, calls);
                const double nodeSpent = childCpuSeconds(node) - nodeStart;
                return answered && nodeStart >= 0 ? nodeSpent + processCpuSeconds() - start : -1;
            },
            10, "<= 0.1"};
    const int status = benchsupport::runPairs(argc, argv, {pair}, 5, 0.5);
    printf("%-52s %7.3f  (%zu bytes against %zu)  aim < 1\n",
           "payload: vistrel-host / node_exporter",
           static_cast<double>(ours.size()) / static_cast<double>(theirs.size()), ours.size(),
           theirs.size());
    curl_easy_cleanup(curl);
    return status;
}
