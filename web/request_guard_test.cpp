#include "web/request_guard.hpp"

#include <gtest/gtest.h>

namespace ombrine::web {
namespace {

TEST(RequestGuard, RefusesForeignHostsOriginsAndMissingTokens) {
  const GuardPolicy loopback = guardPolicyFor("127.0.0.1", 8765, "");
  const GuardPolicy exposed = guardPolicyFor("192.168.1.20", 8765, "s3cret");
  using Header = std::optional<std::string_view>;
  struct Case {
    const char* name;
    const GuardPolicy& policy;
    Header host, origin, token;
    int status;
  };
  const Case cases[] = {
      {"own address", loopback, "127.0.0.1:8765", std::nullopt, std::nullopt, 200},
      {"localhost any case", loopback, "LocalHost:8765", "http://localhost:8765", std::nullopt, 200},
      {"ipv6 loopback", loopback, "[::1]:8765", std::nullopt, std::nullopt, 200},
      {"rebinding name", loopback, "attacker.example:8765", std::nullopt, std::nullopt, 403},
      {"other port", loopback, "127.0.0.1:80", std::nullopt, std::nullopt, 403},
      {"no host", loopback, std::nullopt, std::nullopt, std::nullopt, 403},
      {"foreign origin", loopback, "127.0.0.1:8765", "http://attacker.example", std::nullopt, 403},
      {"https origin of ours", loopback, "127.0.0.1:8765", "https://127.0.0.1:8765", std::nullopt, 403},
      {"null origin", loopback, "127.0.0.1:8765", "null", std::nullopt, 403},
      {"origin prefix trick", loopback, "127.0.0.1:8765", "http://127.0.0.1:8765.attacker.example", std::nullopt, 403},
      {"exposed with token", exposed, "192.168.1.20:8765", std::nullopt, "s3cret", 200},
      {"exposed without token", exposed, "192.168.1.20:8765", std::nullopt, std::nullopt, 401},
      {"exposed wrong token", exposed, "192.168.1.20:8765", std::nullopt, "s3cre", 401},
      {"exposed token, foreign host", exposed, "attacker.example:8765", std::nullopt, "s3cret", 403},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(checkRequest(c.policy, c.host, c.origin, c.token).status, c.status) << c.name;
  }
}

TEST(RequestGuard, AuthoritiesOfAnyAddressIncludeLoopback) {
  const GuardPolicy any = guardPolicyFor("0.0.0.0", 9000, "t");
  EXPECT_EQ(checkRequest(any, "localhost:9000", std::nullopt, "t").status, 200);
  EXPECT_EQ(checkRequest(any, "0.0.0.0:9000", std::nullopt, "t").status, 200);
  EXPECT_FALSE(isLoopbackAddress("0.0.0.0"));
  EXPECT_TRUE(isLoopbackAddress("127.0.0.2"));
}

}  // namespace
}  // namespace ombrine::web
