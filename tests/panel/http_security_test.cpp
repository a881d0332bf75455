// Who may change something on the panel: the Host, Origin and token rules.
#include <gtest/gtest.h>

#include "host/panel/http_security.h"

namespace {

using namespace logohost;

TEST(HttpSecurity, LoopbackAddressesAndHostHeaders)
{
    const struct {
        const char* text;
        bool loopback;
    } addresses[] = {{"127.0.0.1", true}, {"127.3.2.1", true}, {"::1", true},      {"localhost", true},
                     {"0.0.0.0", false},  {"::", false},       {"192.168.0.3", false}, {"128.0.0.1", false},
                     {"plc.example", false}};
    for (const auto& row : addresses) {
        SCOPED_TRACE(row.text);
        EXPECT_EQ(isLoopbackAddress(row.text), row.loopback);
    }
    const struct {
        const char* host;
        bool accepted;
    } headers[] = {{"127.0.0.1:8502", true},     {"localhost:8502", true},  {"LOCALHOST:8502", true},
                   {"[::1]:8502", true},         {"127.0.0.1:8503", false}, {"127.0.0.1", false},
                   {"evil.example:8502", false}, {"", false},               {"[::1]", false}};
    for (const auto& row : headers) {
        SCOPED_TRACE(row.host);
        EXPECT_EQ(isLoopbackHostHeader(row.host, 8502), row.accepted);
    }
}

TEST(HttpSecurity, ChangesComeFromThePanelsOwnOrigin)
{
    const struct {
        const char *origin, *fetchSite, *host;
        bool accepted;
    } rows[] = {
        {"", "", "127.0.0.1:8502", true},  // a script
        {"http://127.0.0.1:8502", "same-origin", "127.0.0.1:8502", true},
        {"http://127.0.0.1:8502", "", "127.0.0.1:8502", true},
        {"http://evil.example", "cross-site", "127.0.0.1:8502", false},
        {"http://evil.example", "", "127.0.0.1:8502", false},
        {"http://127.0.0.1:9999", "same-site", "127.0.0.1:8502", false},  // another port is another origin
        {"https://127.0.0.1:8502", "", "127.0.0.1:8502", false},
        {"null", "", "127.0.0.1:8502", false},
        {"", "cross-site", "127.0.0.1:8502", false},
        {"", "none", "127.0.0.1:8502", true},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(std::string(row.origin) + " / " + row.fetchSite);
        std::string why;
        EXPECT_EQ(isSameOrigin(row.origin, row.fetchSite, row.host, &why), row.accepted);
        EXPECT_EQ(why.empty(), row.accepted);
    }
}

TEST(HttpSecurity, TokenFromBearerOrCookie)
{
    const std::string token = "0123456789abcdef";
    const struct {
        const char *authorization, *cookies;
        bool accepted;
    } rows[] = {
        {"Bearer 0123456789abcdef", "", true},
        {"", "a=1; logohost_token=0123456789abcdef; b=2", true},
        {"", "logohost_token=0123456789abcdef", true},
        {"Bearer 0123456789abcdeX", "", false},
        {"Bearer 0123456789abcde", "", false},
        {"Bearer ", "", false},
        {"0123456789abcdef", "", false},
        {"", "xlogohost_token=0123456789abcdef", false},
        {"", "logohost_token=", false},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(std::string(row.authorization) + " / " + row.cookies);
        EXPECT_EQ(tokenMatches(token, row.authorization, row.cookies), row.accepted);
    }
    EXPECT_FALSE(tokenMatches("", "Bearer ", "logohost_token="));
    const std::string generated = generateToken();
    EXPECT_EQ(generated.size(), 32u);
    EXPECT_NE(generated, generateToken());
}

}  // namespace
