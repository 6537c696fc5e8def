#pragma once
// Who may talk to the local web server: the DNS-rebinding and cross-site checks every request
// passes before any handler runs.
//
// A page on another site can make the browser send requests to 127.0.0.1, either directly
// (its Origin names the other site) or through a name it controls that resolves to loopback
// (the Host header carries that name). The server answers only requests whose Host is one of
// its own authorities and whose Origin, when sent, is http:// on one of them. When it listens
// beyond loopback, every request must also carry the token printed at start.
//
// Pure and reentrant.

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace ombrine::web {

struct GuardPolicy {
  // "host:port" texts the server is reached by ("127.0.0.1:8765", "localhost:8765").
  std::vector<std::string> authorities;
  // Empty: no token needed (loopback only).
  std::string token;
};

// The authorities of a server bound to `bindAddress` on `port`: the address itself (IPv6 in
// brackets) and, for a loopback address, "localhost" and the other loopback spellings.
GuardPolicy guardPolicyFor(std::string_view bindAddress, int port, std::string token);

// True for 127.0.0.0/8, ::1 and "localhost".
bool isLoopbackAddress(std::string_view address) noexcept;

struct GuardVerdict {
  int status = 200;     // 200, 403 (foreign Host or Origin) or 401 (token missing or wrong)
  std::string message;  // why, for the answer's body
};

// `host` and `origin` are the request's headers (nothing when absent); `token` is what the
// request carried in the "X-Ombrine-Token" header or the "token" query parameter.
GuardVerdict checkRequest(const GuardPolicy& policy, std::optional<std::string_view> host,
                          std::optional<std::string_view> origin, std::optional<std::string_view> token);

}  // namespace ombrine::web
