#include "common/endpoint.h"

#include "common/numbers.h"

namespace common {
namespace {

constexpr int kMaxPort = 65535;

bool fail(const std::string& why, std::string* error)
{
    *error = why;
    return false;
}

// Splits "[V6]:PORT", "[V6]", "HOST:PORT", "HOST" and a bare IPv6 address;
// *hasPort tells a missing port from an empty one.
bool split(const std::string& text, std::string* host, std::string* port, bool* hasPort, std::string* error)
{
    *hasPort = false;
    if (!text.empty() && text[0] == '[') {
        const size_t close = text.find(']');
        if (close == std::string::npos)
            return fail("'[' without its ']' (expected [IPV6]:PORT)", error);
        *host = text.substr(1, close - 1);
        if (close + 1 == text.size())
            return true;
        if (text[close + 1] != ':')
            return fail("expected ':' and a port after ']'", error);
        *hasPort = true;
        *port = text.substr(close + 2);
        return true;
    }
    const size_t colon = text.find(':');
    if (colon == std::string::npos || colon != text.rfind(':')) {
        *host = text;  // no port, or a bare IPv6 address
        return true;
    }
    *host = text.substr(0, colon);
    *port = text.substr(colon + 1);
    *hasPort = true;
    return true;
}

}  // namespace

bool parseEndpoint(const std::string& text, int defaultPort, int minPort, Endpoint* out, std::string* error)
{
    std::string host;
    std::string port;
    bool hasPort = false;
    if (!split(text, &host, &port, &hasPort, error))
        return false;
    if (host.empty())
        return fail("the host is missing", error);
    Endpoint endpoint{host, defaultPort};
    if (hasPort && port.empty())
        return fail("the port after ':' is empty", error);
    if (hasPort && !parseInt(port, minPort, kMaxPort, &endpoint.port))
        return fail("the port '" + port + "' is not a number from " + std::to_string(minPort) + " to 65535", error);
    *out = endpoint;
    return true;
}

std::string endpointText(const std::string& host, int port)
{
    const bool v6 = host.find(':') != std::string::npos;
    return (v6 ? "[" + host + "]" : host) + ":" + std::to_string(port);
}

}  // namespace common
