#include "MetricsEndpoint.h"

#include <arpa/inet.h>

#include <prometheus/collectable.h>
#include <prometheus/exposer.h>
#include <prometheus/metric_family.h>
#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>

namespace metrics {
namespace {

constexpr char kLoopback[] = "127.0.0.1";
constexpr size_t kMaxCredentialsBytes = 4096;

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

std::optional<uint16_t> parsePort(const std::string& text) {
    if (text.empty() || text.size() > 5 || text.find_first_not_of("0123456789") != std::string::npos)
        return std::nullopt;
    const int port = std::stoi(text);
    return port <= 65535 ? std::optional<uint16_t>(static_cast<uint16_t>(port)) : std::nullopt;
}

bool isAddress(const std::string& host) {
    unsigned char binary[16];
    if (host.size() > 2 && host.front() == '[' && host.back() == ']') {
        return inet_pton(AF_INET6, host.substr(1, host.size() - 2).c_str(), binary) == 1;
    }
    return inet_pton(AF_INET, host.c_str(), binary) == 1;
}

// Equal texts, compared in a time that depends on the lengths only, so that timing tells a
// guesser nothing of where a guess went wrong.
bool sameText(const std::string& given, const std::string& expected) {
    if (given.size() != expected.size()) return false;
    unsigned char differ = 0;
    for (size_t i = 0; i < given.size(); ++i) differ |= given[i] ^ expected[i];
    return differ == 0;
}

}  // namespace

std::optional<ListenAddress> parseListenAddress(const std::string& text, std::string* error) {
    const size_t colon = text.rfind(':');
    const std::string host = colon == std::string::npos ? "" : text.substr(0, colon);
    const std::string portText = colon == std::string::npos ? text : text.substr(colon + 1);
    const auto port = parsePort(portText);
    if (!port || (!host.empty() && !isAddress(host))) {
        *error = "bad listen address '" + text +
                 "': expected [HOST:]PORT, HOST an IPv4 address or a bracketed IPv6 address, PORT "
                 "0 to 65535";
        return std::nullopt;
    }
    return ListenAddress{host.empty() ? kLoopback : host, *port};
}

std::optional<Credentials> readCredentials(const std::string& path, std::string* error) {
    std::ifstream in(path, std::ios::binary);
    std::string text(kMaxCredentialsBytes + 1, '\0');
    if (in) in.read(&text[0], static_cast<std::streamsize>(text.size()));
    if (!in && !in.eof()) {
        *error = "cannot read '" + path + "': " + strerror(errno);
        return std::nullopt;
    }
    text.resize(static_cast<size_t>(in.gcount()));
    if (!text.empty() && text.back() == '\n') text.pop_back();
    if (!text.empty() && text.back() == '\r') text.pop_back();
    const size_t colon = text.find(':');
    const bool printable = std::all_of(text.begin(), text.end(), [](char c) {
        return static_cast<unsigned char>(c) >= 0x20 && c != 0x7f;
    });
    if (colon == std::string::npos || colon == 0 || colon + 1 == text.size() || !printable ||
        text.size() > kMaxCredentialsBytes - 2) {
        *error = "'" + path + "' must hold one line user:password";
        return std::nullopt;
    }
    return Credentials{text.substr(0, colon), text.substr(colon + 1)};
}

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
