#include "web/request_guard.hpp"

#include <algorithm>
#include <cctype>

namespace ombrine::web {

namespace {

std::string lower(std::string_view text) {
  std::string out(text);
  std::transform(out.begin(), out.end(), out.begin(), [](unsigned char c) { return std::tolower(c); });
  return out;
}

bool knownAuthority(const GuardPolicy& policy, std::string_view authority) {
  const std::string wanted = lower(authority);
  return std::find(policy.authorities.begin(), policy.authorities.end(), wanted) != policy.authorities.end();
}

// Compares without leaking the length of the common prefix through timing.
bool sameSecret(std::string_view given, std::string_view secret) noexcept {
  if (secret.empty() || given.size() != secret.size()) return false;
  unsigned char differ = 0;
  for (std::size_t i = 0; i < secret.size(); ++i) differ |= static_cast<unsigned char>(given[i] ^ secret[i]);
  return differ == 0;
}

}  // namespace

bool isLoopbackAddress(std::string_view address) noexcept {
  return address == "localhost" || address == "::1" || address == "[::1]" || address.starts_with("127.");
}

GuardPolicy guardPolicyFor(std::string_view bindAddress, int port, std::string token) {
  GuardPolicy policy;
  policy.token = std::move(token);
  const std::string suffix = ":" + std::to_string(port);
  auto add = [&](std::string_view host) {
    const bool ipv6 = host.find(':') != std::string_view::npos && !host.starts_with("[");
    policy.authorities.push_back(lower(ipv6 ? "[" + std::string(host) + "]" : std::string(host)) + suffix);
  };
  if (isLoopbackAddress(bindAddress) || bindAddress == "0.0.0.0" || bindAddress == "::") {
    add("127.0.0.1");
    add("localhost");
    add("::1");
  }
  if (!isLoopbackAddress(bindAddress))
    add(bindAddress);
  else if (bindAddress != "127.0.0.1" && bindAddress != "localhost" && bindAddress != "::1")
    add(bindAddress);
  return policy;
}

GuardVerdict checkRequest(const GuardPolicy& policy, std::optional<std::string_view> host,
                          std::optional<std::string_view> origin, std::optional<std::string_view> token) {
  if (!host || !knownAuthority(policy, *host)) {
    return {403,
            "this server answers only requests addressed to it (Host " + std::string(host.value_or("missing")) + ")"};
  }
  if (origin) {
    const std::string_view prefix = "http://";
    if (!origin->starts_with(prefix) || !knownAuthority(policy, origin->substr(prefix.size()))) {
      return {403, "requests from other sites are refused (Origin " + std::string(*origin) + ")"};
    }
  }
  if (!policy.token.empty() && (!token || !sameSecret(*token, policy.token))) {
    return {401, "this server needs the token it printed at start"};
  }
  return {};
}

}  // namespace ombrine::web
