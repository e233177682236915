// HTTP scrapes of the metrics endpoint, in a loop on a thread of their own, while the host runs a
// simulated day of every provider: the endpoint's server threads read what the host keeps of
// each provider's record (under that provider's lock) and the run summary, while the driving
// thread samples, snapshots and renders. Label tsan.
#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <string>
#include <thread>

#include <gtest/gtest.h>

#include "Headset.h"
#include "Host.h"
#include "MetricsEndpoint.h"
#include "RunMetrics.h"
#include "hostplatform/FsRoot.h"
#include "hostplatform/Properties.h"

namespace {

constexpr int64_t kHourNs = INT64_C(3600000000000);

// The whole response to GET /metrics from 127.0.0.1:`port` over HTTP/1.0; empty on failure.
std::string scrape(int port) {
    const int fd = socket(AF_INET, SOCK_STREAM, 0);
    const timeval timeout{10, 0};
    setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &timeout, sizeof(timeout));
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<uint16_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    std::string response;
    const char request[] = "GET /metrics HTTP/1.0\r\n\r\n";
    if (connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof(address)) == 0 &&
        write(fd, request, sizeof(request) - 1) == static_cast<ssize_t>(sizeof(request) - 1)) {
        char chunk[65536];
        for (ssize_t n; (n = read(fd, chunk, sizeof(chunk))) > 0;) response.append(chunk, n);
    }
    close(fd);
    return response;
}

TEST(HostExportTsan, ScrapesInALoopDuringASimulatedDay) {
    hostplatform::setFsRoot(std::string(VISTREL_SOURCE_DIR) + "/tests/data/headset-capture");
    hostplatform::setProperty("enable_fg_apps_cpu_events", "true");  // as the host does
    FILE* sink = fopen("/dev/null", "w");
    ASSERT_NE(sink, nullptr);
    int scrapes = 0, refused = 0, withTemperatures = 0;
    {
        host::HostClock clock(host::HostClock::Mode::Simulated);
        host::Output output(sink, false, [&clock] { return clock.deviceNs(); });
        sim::Headset headset(sim::HeadsetConfig{}, [&clock] { return clock.deviceNs(); });
        host::Host host(clock, output, headset, host::makeProviders({}, {}), kHourNs / 4);
        host.exportRecords({});
        std::string error;
        const auto endpoint = metrics::MetricsEndpoint::start(
                {"127.0.0.1", 0}, std::nullopt, [&host] { return metrics::hostMetrics(host); },
                &error);
        ASSERT_TRUE(endpoint) << error;
        const int port = std::stoi(endpoint->url().substr(endpoint->url().rfind(':') + 1));

        std::atomic<bool> running{true};
        std::thread scraper([&] {
            while (running) {
                const std::string response = scrape(port);
                ++scrapes;
                refused += response.rfind("HTTP/1.1 200", 0) != 0;
                withTemperatures +=
                        response.find("vistrel_thermal_temperature_celsius{") != std::string::npos;
            }
        });
        EXPECT_EQ(host.run(24 * kHourNs), 0);
        running = false;
        scraper.join();
    }
    fclose(sink);

    EXPECT_EQ(refused, 0) << "of " << scrapes << " scrapes";
    EXPECT_GT(withTemperatures, 0) << "of " << scrapes << " scrapes";
}

}  // namespace
