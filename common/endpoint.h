// HOST:PORT as the host's and the simulator's command lines take it:
// HOST, HOST:PORT, [IPV6] or [IPV6]:PORT; a bare IPv6 address (two colons
// or more) is a host without a port.
#ifndef LOGO_COMMON_ENDPOINT_H
#define LOGO_COMMON_ENDPOINT_H

#include <string>

namespace common {

struct Endpoint {
    std::string host;
    int port = 0;
};

// A text without a port takes defaultPort. On failure *error says what was
// wrong with the text, e.g. "the port after ':' is empty".
bool parseEndpoint(const std::string& text, int defaultPort, int minPort, Endpoint* out, std::string* error);

// "127.0.0.1:502", "[::1]:502": as a user would type it back.
std::string endpointText(const std::string& host, int port);

}  // namespace common

#endif  // LOGO_COMMON_ENDPOINT_H
