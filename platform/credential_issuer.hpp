#pragma once
// The platform operation that vouches for this installation to the tile proxy: it issues an
// opaque signed credential text, which the proxy exchanges for a short-lived tile token.
//
// The Linux issuer is SigningCredentialIssuer (platform/linux/signing_credential_issuer.hpp).

#include <stdexcept>
#include <string>

#include "platform/async/task.hpp"

namespace ombrine {

// No credential can be issued: no signing key is configured, or the key cannot be read or used.
// `what()` says which, and how to configure one; it never contains key material.
class CredentialError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

class CredentialIssuer {
 public:
  virtual ~CredentialIssuer() = default;

  // A fresh credential. Any thread and executor; raises CredentialError.
  virtual Task<std::string> issue() = 0;
};

}  // namespace ombrine
