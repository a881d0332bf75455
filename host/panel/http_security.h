// Who may do what on the panel's HTTP side. Reads are open to whoever
// reaches the address; a request that changes something (a write, a
// read-now, a station switch) must come from the panel's own pages or from
// a script, never from another site's page in the same browser, and off
// loopback it must carry the panel's token.
#ifndef LOGOHOST_HTTP_SECURITY_H
#define LOGOHOST_HTTP_SECURITY_H

#include <string>

namespace logohost {

// 127.0.0.0/8, ::1 and localhost: only this machine reaches them.
bool isLoopbackAddress(const std::string& host);

// On loopback the panel answers only to a Host header that names loopback
// (127.0.0.1:PORT, localhost:PORT, [::1]:PORT): a site that points its own
// name at 127.0.0.1 (DNS rebinding) gets nothing, not even the values.
bool isLoopbackHostHeader(const std::string& hostHeader, int port);

// A browser's request that changes something must come from this panel's
// own origin: an Origin header, when there is one, must be http://HOST
// with HOST as the request's Host header, and Sec-Fetch-Site, when there is
// one, must say same-origin (or none, for a typed address). Scripts send
// neither and pass. On failure *why says what was wrong.
bool isSameOrigin(const std::string& origin, const std::string& fetchSite, const std::string& hostHeader,
                  std::string* why);

// The token from "Authorization: Bearer TOKEN" or the panel's cookie,
// compared in constant time.
bool tokenMatches(const std::string& expected, const std::string& authorization, const std::string& cookies);
// The cookie that carries the token once a page was opened with ?token=.
extern const char* const kTokenCookie;

// 128 random bits in hex, from the system's random source.
std::string generateToken();

}  // namespace logohost

#endif  // LOGOHOST_HTTP_SECURITY_H
