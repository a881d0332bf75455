// Who may use the Modbus proxy: the networks its clients must come from.
// Without --modbus-allow that is this machine alone; a proxy that listens
// off loopback must be told which networks to serve, since a Modbus write
// carries no credentials at all.
#ifndef LOGOHOST_CLIENT_ACCESS_H
#define LOGOHOST_CLIENT_ACCESS_H

#include <sys/socket.h>

#include <array>
#include <cstdint>
#include <string>
#include <vector>

namespace logohost {

// An IPv4 or IPv6 network: "192.168.0.0/24", "fd00::/8"; an address alone
// is a network of one.
struct Network {
    int family = AF_INET;
    std::array<uint8_t, 16> bytes{};
    int prefix = 0;  // leading bits that must match
};

// On failure *why says what was wrong ("the prefix /33 is longer than 32").
bool parseNetwork(const std::string& text, Network* out, std::string* why);
// A numeric address, or "localhost" for 127.0.0.1, as the proxy listens on it.
bool parseListenAddress(const std::string& text, Network* out, std::string* why);
bool isLoopback(const Network& address);

class ClientAccess {
public:
    // Empty: loopback only.
    explicit ClientAccess(std::vector<Network> allowed);
    // An IPv4 client reaching an IPv6 socket is matched as IPv4.
    bool allows(const sockaddr_storage& client) const;

private:
    std::vector<Network> allowed_;
};

// "127.0.0.1:40122", "[::1]:40122"
std::string peerText(const sockaddr_storage& peer);

}  // namespace logohost

#endif  // LOGOHOST_CLIENT_ACCESS_H
