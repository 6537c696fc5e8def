#include "providers/system/developer_token.hpp"

#include <openssl/bio.h>
#include <openssl/ec.h>
#include <openssl/evp.h>
#include <openssl/pem.h>

#include <sys/stat.h>

#include <boost/json/serialize.hpp>
#include <boost/json/value.hpp>

#include <cmath>
#include <optional>
#include <stdexcept>
#include <vector>

#include "platform/atomic_file.hpp"
#include "platform/errors.hpp"

namespace ombrine {

namespace {

constexpr std::string_view kAlphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_";

struct BioFree {
  void operator()(BIO* bio) const noexcept { BIO_free(bio); }
};
using Bio = std::unique_ptr<BIO, BioFree>;

std::string bioText(BIO* bio) {
  char* data = nullptr;
  long size = BIO_get_mem_data(bio, &data);
  return std::string(data, static_cast<size_t>(size));
}

bool isP256(EVP_PKEY* key) {
  if (EVP_PKEY_get_base_id(key) != EVP_PKEY_EC) return false;
  char group[64] = {};
  size_t length = 0;
  if (EVP_PKEY_get_utf8_string_param(key, "group", group, sizeof group, &length) != 1) return false;
  return std::string_view(group, length) == "prime256v1";
}

// The DER ECDSA signature as r‖s, each 32 bytes.
std::string rawSignature(const std::vector<unsigned char>& der) {
  const unsigned char* cursor = der.data();
  ECDSA_SIG* signature = d2i_ECDSA_SIG(nullptr, &cursor, static_cast<long>(der.size()));
  if (!signature) throw std::runtime_error("unreadable ECDSA signature");
  std::string raw(64, '\0');
  const BIGNUM* r = ECDSA_SIG_get0_r(signature);
  const BIGNUM* s = ECDSA_SIG_get0_s(signature);
  BN_bn2binpad(r, reinterpret_cast<unsigned char*>(raw.data()), 32);
  BN_bn2binpad(s, reinterpret_cast<unsigned char*>(raw.data()) + 32, 32);
  ECDSA_SIG_free(signature);
  return raw;
}

}  // namespace

void DeveloperKey::Free::operator()(EVP_PKEY* key) const noexcept { EVP_PKEY_free(key); }

DeveloperKey DeveloperKey::fromPem(std::string_view pem) {
  Bio bio(BIO_new_mem_buf(pem.data(), static_cast<int>(pem.size())));
  EVP_PKEY* key = bio ? PEM_read_bio_PrivateKey(bio.get(), nullptr, nullptr, nullptr) : nullptr;
  if (!key) throw std::invalid_argument("not a PEM private key");
  DeveloperKey result(key);
  if (!isP256(key)) throw std::invalid_argument("not a P-256 (ES256) private key");
  return result;
}

DeveloperKey DeveloperKey::fromFile(const std::filesystem::path& file) {
  struct stat st {};
  if (::stat(file.c_str(), &st) != 0) throw FileError("cannot read the system weather key " + file.string());
  if ((st.st_mode & (S_IRWXG | S_IRWXO)) != 0) {
    throw FileError("refusing " + file.string() + ": it is readable by group or others (run: chmod 600 " +
                    file.string() + ")");
  }
  auto text = readFileIfExists(file);
  if (!text) throw FileError("cannot read the system weather key " + file.string());
  return fromPem(*text);
}

DeveloperKey DeveloperKey::generate() {
  EVP_PKEY* key = EVP_EC_gen("P-256");
  if (!key) throw std::runtime_error("could not generate a P-256 key");
  DeveloperKey result(key);
  return result;
}

std::string DeveloperKey::privatePem() const {
  Bio bio(BIO_new(BIO_s_mem()));
  PEM_write_bio_PrivateKey(bio.get(), key_.get(), nullptr, nullptr, 0, nullptr, nullptr);
  return bioText(bio.get());
}

std::string DeveloperKey::publicPem() const {
  Bio bio(BIO_new(BIO_s_mem()));
  PEM_write_bio_PUBKEY(bio.get(), key_.get());
  return bioText(bio.get());
}

std::string base64UrlEncode(std::string_view bytes) {
  std::string out;
  out.reserve((bytes.size() + 2) / 3 * 4);
  size_t i = 0;
  auto byte = [&](size_t at) { return static_cast<unsigned>(static_cast<unsigned char>(bytes[at])); };
  for (; i + 2 < bytes.size(); i += 3) {
    unsigned n = byte(i) << 16 | byte(i + 1) << 8 | byte(i + 2);
    for (int shift : {18, 12, 6, 0}) out.push_back(kAlphabet[(n >> shift) & 63]);
  }
  if (i + 1 == bytes.size()) {
    unsigned n = byte(i) << 16;
    for (int shift : {18, 12}) out.push_back(kAlphabet[(n >> shift) & 63]);
  } else if (i + 2 == bytes.size()) {
    unsigned n = byte(i) << 16 | byte(i + 1) << 8;
    for (int shift : {18, 12, 6}) out.push_back(kAlphabet[(n >> shift) & 63]);
  }
  return out;
}

std::optional<std::string> base64UrlDecode(std::string_view text) {
  if (text.size() % 4 == 1) return std::nullopt;
  std::string out;
  unsigned buffer = 0;
  int bits = 0;
  for (char c : text) {
    size_t value = kAlphabet.find(c);
    if (value == std::string_view::npos) return std::nullopt;
    buffer = buffer << 6 | static_cast<unsigned>(value);
    bits += 6;
    if (bits >= 8) {
      bits -= 8;
      out.push_back(static_cast<char>((buffer >> bits) & 0xFF));
    }
  }
  return out;
}

std::string signDeveloperToken(const DeveloperKey& key, const DeveloperTokenClaims& claims, Date now,
                               std::chrono::seconds lifetime) {
  const auto issuedAt = static_cast<std::int64_t>(std::floor(now.unixSeconds()));
  boost::json::object header{{"alg", "ES256"}, {"kid", claims.keyId}, {"id", claims.teamId + "." + claims.serviceId}};
  boost::json::object payload{
      {"iss", claims.teamId}, {"iat", issuedAt}, {"exp", issuedAt + lifetime.count()}, {"sub", claims.serviceId}};
  std::string signingInput =
      base64UrlEncode(boost::json::serialize(header)) + "." + base64UrlEncode(boost::json::serialize(payload));

  EVP_MD_CTX* context = EVP_MD_CTX_new();
  size_t length = 0;
  std::vector<unsigned char> der;
  bool ok = context && EVP_DigestSignInit(context, nullptr, EVP_sha256(), nullptr, key.get()) == 1 &&
            EVP_DigestSign(context, nullptr, &length, reinterpret_cast<const unsigned char*>(signingInput.data()),
                           signingInput.size()) == 1;
  if (ok) {
    der.resize(length);
    ok = EVP_DigestSign(context, der.data(), &length, reinterpret_cast<const unsigned char*>(signingInput.data()),
                        signingInput.size()) == 1;
    der.resize(length);
  }
  EVP_MD_CTX_free(context);
  if (!ok) throw std::runtime_error("OpenSSL could not sign the developer token");
  return signingInput + "." + base64UrlEncode(rawSignature(der));
}

}  // namespace ombrine
