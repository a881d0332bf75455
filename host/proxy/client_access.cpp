#include "host/proxy/client_access.h"

#include <arpa/inet.h>
#include <netinet/in.h>

#include <cstring>

#include "common/endpoint.h"
#include "common/numbers.h"

namespace logohost {
namespace {

constexpr int kBitsPerByte = 8;
constexpr int kIpv4Bytes = 4;
constexpr int kIpv6Bytes = 16;
constexpr int kIpv4MappedOffset = 12;  // ::ffff:a.b.c.d holds the IPv4 address in its last four bytes
constexpr int kLoopbackV4Prefix = 8;   // 127.0.0.0/8

int bitsOf(int family) { return (family == AF_INET ? kIpv4Bytes : kIpv6Bytes) * kBitsPerByte; }

bool parseAddress(const std::string& text, Network* out)
{
    Network address;
    if (inet_pton(AF_INET, text.c_str(), address.bytes.data()) == 1)
        address.family = AF_INET;
    else if (inet_pton(AF_INET6, text.c_str(), address.bytes.data()) == 1)
        address.family = AF_INET6;
    else
        return false;
    address.prefix = bitsOf(address.family);
    *out = address;
    return true;
}

bool matches(const Network& network, const Network& address)
{
    if (network.family != address.family)
        return false;
    const int whole = network.prefix / kBitsPerByte;
    if (std::memcmp(network.bytes.data(), address.bytes.data(), static_cast<size_t>(whole)) != 0)
        return false;
    const int rest = network.prefix % kBitsPerByte;
    if (rest == 0)
        return true;
    const uint8_t mask = static_cast<uint8_t>(0xFF << (kBitsPerByte - rest));
    return (network.bytes[whole] & mask) == (address.bytes[whole] & mask);
}

Network addressOf(const sockaddr_storage& peer)
{
    Network address;
    if (peer.ss_family == AF_INET) {
        const auto& v4 = reinterpret_cast<const sockaddr_in&>(peer);
        std::memcpy(address.bytes.data(), &v4.sin_addr, kIpv4Bytes);
    } else {
        const auto& v6 = reinterpret_cast<const sockaddr_in6&>(peer);
        if (IN6_IS_ADDR_V4MAPPED(&v6.sin6_addr)) {
            std::memcpy(address.bytes.data(), v6.sin6_addr.s6_addr + kIpv4MappedOffset, kIpv4Bytes);
        } else {
            address.family = AF_INET6;
            std::memcpy(address.bytes.data(), &v6.sin6_addr, kIpv6Bytes);
        }
    }
    address.prefix = bitsOf(address.family);
    return address;
}

std::vector<Network> loopbackNetworks()
{
    Network v4, v6;
    parseAddress("127.0.0.0", &v4);
    v4.prefix = kLoopbackV4Prefix;
    parseAddress("::1", &v6);
    return {v4, v6};
}

}  // namespace

bool parseNetwork(const std::string& text, Network* out, std::string* why)
{
    const size_t slash = text.find('/');
    const std::string host = text.substr(0, slash);
    Network network;
    if (!parseAddress(host, &network)) {
        *why = "'" + host + "' is not a numeric IPv4 or IPv6 address";
        return false;
    }
    const int most = bitsOf(network.family);
    if (slash != std::string::npos && !common::parseInt(text.substr(slash + 1), 0, most, &network.prefix)) {
        *why = "the prefix after '/' must be a number from 0 to " + std::to_string(most);
        return false;
    }
    *out = network;
    return true;
}

bool parseListenAddress(const std::string& text, Network* out, std::string* why)
{
    if (parseAddress(text == "localhost" ? "127.0.0.1" : text, out))
        return true;
    *why = "'" + text + "' is not a numeric IPv4 or IPv6 address (or localhost)";
    return false;
}

bool isLoopback(const Network& address)
{
    for (const Network& network : loopbackNetworks())
        if (matches(network, address))
            return true;
    return false;
}

ClientAccess::ClientAccess(std::vector<Network> allowed)
    : allowed_(allowed.empty() ? loopbackNetworks() : std::move(allowed))
{
}

bool ClientAccess::allows(const sockaddr_storage& client) const
{
    const Network address = addressOf(client);
    for (const Network& network : allowed_)
        if (matches(network, address))
            return true;
    return false;
}

std::string peerText(const sockaddr_storage& peer)
{
    const Network address = addressOf(peer);
    char text[INET6_ADDRSTRLEN] = "";
    inet_ntop(address.family, address.bytes.data(), text, sizeof text);
    const int port = peer.ss_family == AF_INET ? ntohs(reinterpret_cast<const sockaddr_in&>(peer).sin_port)
                                               : ntohs(reinterpret_cast<const sockaddr_in6&>(peer).sin6_port);
    return common::endpointText(text, port);
}

}  // namespace logohost
