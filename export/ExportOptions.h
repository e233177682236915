// What the reference host's command line asks of the exporter, and the readers of its values:
// the live endpoint's address and credentials, the OpenMetrics file with its device label and
// start time. Untrusted text: every reader returns nothing with a one-line *error instead.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace metrics {

struct ListenAddress {
    std::string host;  // an IPv4 address, or an IPv6 address in brackets
    uint16_t port;     // 0: a free port
};

struct Credentials {
    std::string user;
    std::string password;
};

struct ExportConfig {
    std::optional<ListenAddress> listen;     // --metrics-listen
    std::optional<Credentials> credentials;  // --metrics-auth
    std::string openMetricsPath;             // --openmetrics; empty: no file
    std::string device;                      // --device: device="..." on every series of the file
    std::optional<int64_t> startUnixMs;      // --start-time: device time 0; empty: the run ends now
};

// "HOST:PORT", ":PORT" or "PORT"; without a host, 127.0.0.1 (loopback only). HOST is an IPv4
// address or a bracketed IPv6 address, PORT 0 to 65535.
std::optional<ListenAddress> parseListenAddress(const std::string& text, std::string* error);

// The single "user:password" line of the file at `path` (one final newline allowed), both parts
// non-empty and printable.
std::optional<Credentials> readCredentials(const std::string& path, std::string* error);

// Milliseconds since the epoch of an RFC 3339 date-time from 1970 on ("2024-05-01T08:00:00Z",
// "2024-05-01T10:00:00.250+02:00").
std::optional<int64_t> parseRfc3339(const std::string& text);

}  // namespace metrics
