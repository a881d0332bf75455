#include "host/panel/http_security.h"

#include <arpa/inet.h>

#include <cstdio>
#include <random>

namespace logohost {

const char* const kTokenCookie = "logohost_token";

namespace {

constexpr size_t kTokenBytes = 16;
const char* const kBearer = "Bearer ";

std::string lower(std::string text)
{
    for (char& c : text)
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return text;
}

bool equalInConstantTime(const std::string& a, const std::string& b)
{
    unsigned char difference = a.size() == b.size() ? 0 : 1;
    for (size_t i = 0; i < a.size(); ++i)
        difference |= static_cast<unsigned char>(a[i] ^ b[i % (b.empty() ? 1 : b.size())]);
    return difference == 0 && !b.empty();
}

std::string cookieValue(const std::string& cookies, const std::string& name)
{
    size_t start = 0;
    while (start < cookies.size()) {
        size_t end = cookies.find(';', start);
        if (end == std::string::npos)
            end = cookies.size();
        std::string pair = cookies.substr(start, end - start);
        const size_t first = pair.find_first_not_of(' ');
        pair = first == std::string::npos ? "" : pair.substr(first);
        if (pair.compare(0, name.size() + 1, name + "=") == 0)
            return pair.substr(name.size() + 1);
        start = end + 1;
    }
    return "";
}

}  // namespace

bool isLoopbackAddress(const std::string& host)
{
    if (lower(host) == "localhost")
        return true;
    in_addr v4{};
    if (inet_pton(AF_INET, host.c_str(), &v4) == 1)
        return (ntohl(v4.s_addr) >> 24) == 127;
    in6_addr v6{};
    return inet_pton(AF_INET6, host.c_str(), &v6) == 1 && IN6_IS_ADDR_LOOPBACK(&v6);
}

bool isLoopbackHostHeader(const std::string& hostHeader, int port)
{
    const std::string host = lower(hostHeader);
    const std::string suffix = ":" + std::to_string(port);
    if (host.size() <= suffix.size() || host.compare(host.size() - suffix.size(), suffix.size(), suffix) != 0)
        return false;
    std::string name = host.substr(0, host.size() - suffix.size());
    if (name.size() > 2 && name.front() == '[' && name.back() == ']')
        name = name.substr(1, name.size() - 2);
    return isLoopbackAddress(name);
}

bool isSameOrigin(const std::string& origin, const std::string& fetchSite, const std::string& hostHeader,
                  std::string* why)
{
    if (!fetchSite.empty() && fetchSite != "same-origin" && fetchSite != "none") {
        *why = "the request came from another site's page (Sec-Fetch-Site: " + fetchSite + ")";
        return false;
    }
    if (origin.empty())
        return true;
    if (lower(origin) != "http://" + lower(hostHeader)) {
        *why = "the request came from " + origin + ", not from this panel's pages";
        return false;
    }
    return true;
}

bool tokenMatches(const std::string& expected, const std::string& authorization, const std::string& cookies)
{
    const size_t bearer = std::string(kBearer).size();
    if (authorization.size() > bearer && authorization.compare(0, bearer, kBearer) == 0 &&
        equalInConstantTime(authorization.substr(bearer), expected))
        return true;
    const std::string cookie = cookieValue(cookies, kTokenCookie);
    return !cookie.empty() && equalInConstantTime(cookie, expected);
}

std::string generateToken()
{
    std::random_device source;  // the system's random source on glibc
    std::string token;
    for (size_t i = 0; i < kTokenBytes; ++i) {
        char hex[3];
        std::snprintf(hex, sizeof hex, "%02x", static_cast<unsigned>(source() & 0xFF));
        token += hex;
    }
    return token;
}

}  // namespace logohost
