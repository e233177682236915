// The live metrics endpoint: serves metric families at http://HOST:PORT/metrics in the
// Prometheus text format, through prometheus-cpp's Exposer (civetweb) and its text serializer.
// The families are gathered anew for every scrape, on one of the server's threads; optional HTTP
// basic authentication refuses a scrape without the right credentials with 401 and no data.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "ExportOptions.h"
#include "MetricFamilies.h"

namespace prometheus {
class Collectable;
class Exposer;
}  // namespace prometheus

namespace metrics {

class MetricsEndpoint {
public:
    // Called for every scrape on a server thread, possibly on several at once.
    using Gather = std::function<Families()>;

    // Starts serving at once; empty with *error set when the address cannot be bound.
    static std::unique_ptr<MetricsEndpoint> start(const ListenAddress& address,
                                                  const std::optional<Credentials>& credentials,
                                                  Gather gather, std::string* error);
    // Stops the server: no scrape runs once it returns.
    ~MetricsEndpoint();
    MetricsEndpoint(const MetricsEndpoint&) = delete;
    MetricsEndpoint& operator=(const MetricsEndpoint&) = delete;

    // http://HOST:PORT/metrics with the port actually bound.
    const std::string& url() const { return url_; }

private:
    MetricsEndpoint() = default;

    std::shared_ptr<prometheus::Collectable> collectable_;
    std::unique_ptr<prometheus::Exposer> exposer_;
    std::string url_;
};

}  // namespace metrics
