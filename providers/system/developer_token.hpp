#pragma once
// The developer token of the system weather service: a JSON Web Token signed ES256 with the
// developer's P-256 private key.
//
// Header {"alg":"ES256","kid":<key id>,"id":"<team id>.<service id>"}, claims
// {"iss":<team id>,"iat":<now>,"exp":<now + lifetime>,"sub":<service id>}; the signature is the
// raw 64-byte r‖s form, every part base64url without padding. Uses OpenSSL 3; thread-safe (a
// key is immutable once loaded).

#include <chrono>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "core/values/date.hpp"

typedef struct evp_pkey_st EVP_PKEY;

namespace ombrine {

class DeveloperKey {
 public:
  // Reads a PEM private key (PKCS#8 "BEGIN PRIVATE KEY" or SEC1 "BEGIN EC PRIVATE KEY").
  // Raises std::invalid_argument when the text holds no P-256 private key.
  static DeveloperKey fromPem(std::string_view pem);
  // Reads the key file; raises FileError when it is missing, unreadable, or readable by group or
  // others (the message names the file and the chmod that fixes it), std::invalid_argument as
  // above.
  static DeveloperKey fromFile(const std::filesystem::path& file);
  // A fresh throwaway P-256 key.
  static DeveloperKey generate();

  std::string privatePem() const;
  std::string publicPem() const;
  EVP_PKEY* get() const noexcept { return key_.get(); }

 private:
  struct Free {
    void operator()(EVP_PKEY* key) const noexcept;
  };
  explicit DeveloperKey(EVP_PKEY* key) : key_(key, Free{}) {}
  std::shared_ptr<EVP_PKEY> key_;
};

struct DeveloperTokenClaims {
  std::string keyId;
  std::string teamId;
  std::string serviceId;
};

inline constexpr std::chrono::seconds kDeveloperTokenLifetime{3600};

// The signed token. Raises std::runtime_error when OpenSSL refuses to sign.
std::string signDeveloperToken(const DeveloperKey& key, const DeveloperTokenClaims& claims, Date now,
                               std::chrono::seconds lifetime = kDeveloperTokenLifetime);

// base64url without padding, and back (nothing for text that is not base64url).
std::string base64UrlEncode(std::string_view bytes);
std::optional<std::string> base64UrlDecode(std::string_view text);

}  // namespace ombrine
