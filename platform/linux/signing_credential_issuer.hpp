#pragma once
// The credential issuer of Linux: a compact JWS over a small claim set (bundle id, platform,
// issue time, a random nonce), signed with a private key the user configures, in PEM form.
// P-256 keys sign "ES256", Ed25519 keys "EdDSA", RSA keys "RS256".
//
// The key is read at each issue, so a replaced key file takes effect without a restart.
// Thread-safe. Raises CredentialError when there is no key, or it cannot be read or used.

#include <filesystem>
#include <optional>
#include <string>

#include "platform/clock.hpp"
#include "platform/credential_issuer.hpp"

namespace ombrine {

class SigningCredentialIssuer final : public CredentialIssuer {
 public:
  // Signs with the PEM key in `keyFile`; with nothing, every issue raises CredentialError.
  SigningCredentialIssuer(std::optional<std::filesystem::path> keyFile, const Clock& clock);
  // Signs with a P-256 key made now and kept in memory only: for a simulated tile proxy, which
  // checks the credential's form but has no key to check it against.
  static std::unique_ptr<SigningCredentialIssuer> withEphemeralKey(const Clock& clock);

  Task<std::string> issue() override;

  // The credential for `pem` at `unixSeconds`, synchronously.
  std::string sign(const std::string& pem, double unixSeconds) const;

 private:
  SigningCredentialIssuer(std::string pem, const Clock& clock);

  std::optional<std::filesystem::path> keyFile_;
  std::string ephemeralPem_;
  const Clock& clock_;
};

// Base64url without padding, as JWS uses.
std::string base64Url(std::string_view bytes);

}  // namespace ombrine
