#include "MetricsEndpoint.h"

#include <prometheus/collectable.h>
#include <prometheus/exposer.h>
#include <prometheus/metric_family.h>

namespace metrics {
namespace {

prometheus::MetricFamily toPrometheus(const Family& family) {
    prometheus::MetricFamily out;
    out.name = family.name;
    out.help = family.help;
    out.type = family.kind == Kind::Counter ? prometheus::MetricType::Counter
                                            : prometheus::MetricType::Gauge;
    out.metric.reserve(family.series.size());
    for (const Series& series : family.series) {
        prometheus::ClientMetric metric;
        for (const Label& label : series.labels) metric.label.push_back({label.name, label.value});
        (family.kind == Kind::Counter ? metric.counter.value : metric.gauge.value) = series.value;
        out.metric.push_back(std::move(metric));
    }
    return out;
}

// The families of one scrape, gathered when the server asks for them.
class GatheredFamilies : public prometheus::Collectable {
public:
    explicit GatheredFamilies(MetricsEndpoint::Gather gather) : gather_(std::move(gather)) {}

    std::vector<prometheus::MetricFamily> Collect() const override {
        std::vector<prometheus::MetricFamily> all;
        for (const Family& family : gather_()) all.push_back(toPrometheus(family));
        return all;
    }

private:
    const MetricsEndpoint::Gather gather_;
};

// Equal texts, compared in a time that depends on the lengths only, so that timing tells a
// guesser nothing of where a guess went wrong.
bool sameText(const std::string& given, const std::string& expected) {
    if (given.size() != expected.size()) return false;
    unsigned char differ = 0;
    for (size_t i = 0; i < given.size(); ++i) differ |= given[i] ^ expected[i];
    return differ == 0;
}

}  // namespace

std::unique_ptr<MetricsEndpoint> MetricsEndpoint::start(const ListenAddress& address,
                                                        const std::optional<Credentials>& credentials,
                                                        Gather gather, std::string* error) {
    const std::string bind = address.host + ":" + std::to_string(address.port);
    std::unique_ptr<MetricsEndpoint> endpoint(new MetricsEndpoint());
    try {
        endpoint->exposer_ = std::make_unique<prometheus::Exposer>(bind, 2);
    } catch (const std::exception&) {
        *error = "cannot listen on " + bind + " (in use, or not an address of this machine)";
        return nullptr;
    }
    if (credentials) {
        endpoint->exposer_->RegisterAuth(
                [credentials](const std::string& user, const std::string& password) {
                    const bool userOk = sameText(user, credentials->user);
                    const bool passwordOk = sameText(password, credentials->password);
                    return userOk && passwordOk;
                },
                "vistrel-host");
    }
    endpoint->collectable_ = std::make_shared<GatheredFamilies>(std::move(gather));
    endpoint->exposer_->RegisterCollectable(endpoint->collectable_);
    const auto ports = endpoint->exposer_->GetListeningPorts();
    endpoint->url_ = "http://" + address.host + ":" +
                     std::to_string(ports.empty() ? address.port : ports.front()) + "/metrics";
    return endpoint;
}

MetricsEndpoint::~MetricsEndpoint() {
    exposer_.reset();  // joins the server's threads before the collectable goes
}

}  // namespace metrics
