#include "platform/linux/signing_credential_issuer.hpp"

#include <openssl/bio.h>
#include <openssl/ec.h>
#include <openssl/ecdsa.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/rand.h>

#include <fmt/format.h>

#include <fstream>
#include <memory>
#include <sstream>

namespace ombrine {

namespace {

constexpr const char* kBundleIdentifier = "com.quillfernhollowarts.Weather";
constexpr const char* kConfigureHint =
    "set OMBRINE_TILE_SIGNING_KEY or tile_signing_key in the credentials file to a PEM private key";

struct PkeyDeleter {
  void operator()(EVP_PKEY* key) const { EVP_PKEY_free(key); }
};
struct MdDeleter {
  void operator()(EVP_MD_CTX* context) const { EVP_MD_CTX_free(context); }
};
struct BioDeleter {
  void operator()(BIO* bio) const { BIO_free(bio); }
};
using Pkey = std::unique_ptr<EVP_PKEY, PkeyDeleter>;

Pkey readKey(const std::string& pem) {
  std::unique_ptr<BIO, BioDeleter> bio(BIO_new_mem_buf(pem.data(), static_cast<int>(pem.size())));
  if (!bio) throw CredentialError("cannot read the tile signing key");
  Pkey key(PEM_read_bio_PrivateKey(bio.get(), nullptr, nullptr, nullptr));
  if (!key) throw CredentialError("the tile signing key is not a PEM private key");
  return key;
}

// ECDSA signs in DER; JWS wants r and s as two fixed-size big-endian halves.
std::string rawEcdsa(const std::string& der, int half) {
  const auto* bytes = reinterpret_cast<const unsigned char*>(der.data());
  ECDSA_SIG* signature = d2i_ECDSA_SIG(nullptr, &bytes, static_cast<long>(der.size()));
  if (!signature) throw CredentialError("cannot encode the credential's signature");
  std::string raw(static_cast<std::size_t>(2 * half), '\0');
  const bool ok =
      BN_bn2binpad(ECDSA_SIG_get0_r(signature), reinterpret_cast<unsigned char*>(raw.data()), half) == half &&
      BN_bn2binpad(ECDSA_SIG_get0_s(signature), reinterpret_cast<unsigned char*>(raw.data()) + half, half) == half;
  ECDSA_SIG_free(signature);
  if (!ok) throw CredentialError("cannot encode the credential's signature");
  return raw;
}

}  // namespace

std::string base64Url(std::string_view bytes) {
  static constexpr char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_";
  std::string out;
  std::uint32_t buffer = 0;
  int bits = 0;
  for (unsigned char byte : bytes) {
    buffer = (buffer << 8) | byte;
    bits += 8;
    while (bits >= 6) {
      bits -= 6;
      out += kAlphabet[(buffer >> bits) & 0x3F];
    }
  }
  if (bits > 0) out += kAlphabet[(buffer << (6 - bits)) & 0x3F];
  return out;
}

SigningCredentialIssuer::SigningCredentialIssuer(std::optional<std::filesystem::path> keyFile, const Clock& clock)
    : keyFile_(std::move(keyFile)), clock_(clock) {}

SigningCredentialIssuer::SigningCredentialIssuer(std::string pem, const Clock& clock)
    : ephemeralPem_(std::move(pem)), clock_(clock) {}

std::unique_ptr<SigningCredentialIssuer> SigningCredentialIssuer::withEphemeralKey(const Clock& clock) {
  Pkey key(EVP_PKEY_Q_keygen(nullptr, nullptr, "EC", "P-256"));
  std::unique_ptr<BIO, BioDeleter> bio(BIO_new(BIO_s_mem()));
  if (!key || !bio || !PEM_write_bio_PrivateKey(bio.get(), key.get(), nullptr, nullptr, 0, nullptr, nullptr)) {
    throw CredentialError("cannot make a signing key");
  }
  char* data = nullptr;
  const long size = BIO_get_mem_data(bio.get(), &data);
  return std::unique_ptr<SigningCredentialIssuer>(
      new SigningCredentialIssuer(std::string(data, static_cast<std::size_t>(size)), clock));
}

Task<std::string> SigningCredentialIssuer::issue() {
  std::string pem = ephemeralPem_;
  if (pem.empty()) {
    if (!keyFile_) throw CredentialError(fmt::format("No signing key for the tile proxy: {}", kConfigureHint));
    std::ifstream file(*keyFile_, std::ios::binary);
    std::ostringstream text;
    text << file.rdbuf();
    if (!file || text.str().empty()) {
      throw CredentialError(fmt::format("Cannot read the tile signing key {}: {}", keyFile_->string(), kConfigureHint));
    }
    pem = text.str();
  }
  const double now = std::chrono::duration<double>(clock_.now().time_since_epoch()).count();
  co_return sign(pem, now);
}

std::string SigningCredentialIssuer::sign(const std::string& pem, double unixSeconds) const {
  Pkey key = readKey(pem);
  const char* algorithm = nullptr;
  const EVP_MD* digest = nullptr;
  int ecHalf = 0;
  switch (EVP_PKEY_get_base_id(key.get())) {
    case EVP_PKEY_EC:
      if (EVP_PKEY_get_bits(key.get()) != 256) throw CredentialError("the tile signing key is an EC key but not P-256");
      algorithm = "ES256", digest = EVP_sha256(), ecHalf = 32;
      break;
    case EVP_PKEY_ED25519: algorithm = "EdDSA"; break;
    case EVP_PKEY_RSA: algorithm = "RS256", digest = EVP_sha256(); break;
    default: throw CredentialError("the tile signing key must be P-256, Ed25519 or RSA");
  }
  unsigned char nonce[16];
  if (RAND_bytes(nonce, sizeof nonce) != 1) throw CredentialError("no randomness for the credential");
  std::string nonceHex;
  for (unsigned char byte : nonce) nonceHex += fmt::format("{:02x}", byte);
  const std::string header = fmt::format(R"({{"alg":"{}","typ":"JWT"}})", algorithm);
  const std::string claims = fmt::format(R"({{"bundleId":"{}","platform":"linux","iat":{},"nonce":"{}"}})",
                                         kBundleIdentifier, static_cast<long long>(unixSeconds), nonceHex);
  const std::string signingInput = base64Url(header) + "." + base64Url(claims);

  std::unique_ptr<EVP_MD_CTX, MdDeleter> context(EVP_MD_CTX_new());
  std::size_t length = 0;
  const auto* input = reinterpret_cast<const unsigned char*>(signingInput.data());
  if (!context || EVP_DigestSignInit(context.get(), nullptr, digest, nullptr, key.get()) != 1 ||
      EVP_DigestSign(context.get(), nullptr, &length, input, signingInput.size()) != 1) {
    throw CredentialError("cannot sign with the tile signing key");
  }
  std::string signature(length, '\0');
  if (EVP_DigestSign(context.get(), reinterpret_cast<unsigned char*>(signature.data()), &length, input,
                     signingInput.size()) != 1) {
    throw CredentialError("cannot sign with the tile signing key");
  }
  signature.resize(length);
  if (ecHalf > 0) signature = rawEcdsa(signature, ecHalf);
  return signingInput + "." + base64Url(signature);
}

}  // namespace ombrine
