#include "platform/linux/crypto_library.hpp"

#include <openssl/bio.h>
#include <openssl/bn.h>
#include <openssl/crypto.h>
#include <openssl/ec.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/rand.h>

#include <cstdarg>
#include <cstring>

#include "platform/linux/shared_library.hpp"

#define OMBRINE_FORWARD(name, ...) OMBRINE_FORWARD_TO(ombrine::kCryptoLibrary, name __VA_OPT__(, ) __VA_ARGS__)

extern "C" {

BIO* BIO_new(const BIO_METHOD* type) { OMBRINE_FORWARD(BIO_new, type); }
int BIO_free(BIO* a) { OMBRINE_FORWARD(BIO_free, a); }
BIO* BIO_new_mem_buf(const void* buf, int len) { OMBRINE_FORWARD(BIO_new_mem_buf, buf, len); }
const BIO_METHOD* BIO_s_mem(void) { OMBRINE_FORWARD(BIO_s_mem); }
long BIO_ctrl(BIO* bp, int cmd, long larg, void* parg) { OMBRINE_FORWARD(BIO_ctrl, bp, cmd, larg, parg); }
BIGNUM* BN_bin2bn(const unsigned char* s, int len, BIGNUM* ret) { OMBRINE_FORWARD(BN_bin2bn, s, len, ret); }
int BN_bn2binpad(const BIGNUM* a, unsigned char* to, int tolen) { OMBRINE_FORWARD(BN_bn2binpad, a, to, tolen); }
void CRYPTO_free(void* ptr, const char* file, int line) { OMBRINE_FORWARD(CRYPTO_free, ptr, file, line); }
ECDSA_SIG* ECDSA_SIG_new(void) { OMBRINE_FORWARD(ECDSA_SIG_new); }
void ECDSA_SIG_free(ECDSA_SIG* sig) { OMBRINE_FORWARD(ECDSA_SIG_free, sig); }
const BIGNUM* ECDSA_SIG_get0_r(const ECDSA_SIG* sig) { OMBRINE_FORWARD(ECDSA_SIG_get0_r, sig); }
const BIGNUM* ECDSA_SIG_get0_s(const ECDSA_SIG* sig) { OMBRINE_FORWARD(ECDSA_SIG_get0_s, sig); }
int ECDSA_SIG_set0(ECDSA_SIG* sig, BIGNUM* r, BIGNUM* s) { OMBRINE_FORWARD(ECDSA_SIG_set0, sig, r, s); }
ECDSA_SIG* d2i_ECDSA_SIG(ECDSA_SIG** sig, const unsigned char** pp, long len) {
  OMBRINE_FORWARD(d2i_ECDSA_SIG, sig, pp, len);
}
int i2d_ECDSA_SIG(const ECDSA_SIG* sig, unsigned char** pp) { OMBRINE_FORWARD(i2d_ECDSA_SIG, sig, pp); }
int EVP_DigestSign(EVP_MD_CTX* ctx, unsigned char* sigret, size_t* siglen, const unsigned char* tbs, size_t tbslen) {
  OMBRINE_FORWARD(EVP_DigestSign, ctx, sigret, siglen, tbs, tbslen);
}
int EVP_DigestSignInit(EVP_MD_CTX* ctx, EVP_PKEY_CTX** pctx, const EVP_MD* type, ENGINE* e, EVP_PKEY* pkey) {
  OMBRINE_FORWARD(EVP_DigestSignInit, ctx, pctx, type, e, pkey);
}
int EVP_DigestVerify(EVP_MD_CTX* ctx, const unsigned char* sigret, size_t siglen, const unsigned char* tbs,
                     size_t tbslen) {
  OMBRINE_FORWARD(EVP_DigestVerify, ctx, sigret, siglen, tbs, tbslen);
}
int EVP_DigestVerifyInit(EVP_MD_CTX* ctx, EVP_PKEY_CTX** pctx, const EVP_MD* type, ENGINE* e, EVP_PKEY* pkey) {
  OMBRINE_FORWARD(EVP_DigestVerifyInit, ctx, pctx, type, e, pkey);
}
EVP_MD_CTX* EVP_MD_CTX_new(void) { OMBRINE_FORWARD(EVP_MD_CTX_new); }
void EVP_MD_CTX_free(EVP_MD_CTX* ctx) { OMBRINE_FORWARD(EVP_MD_CTX_free, ctx); }
const EVP_MD* EVP_sha256(void) { OMBRINE_FORWARD(EVP_sha256); }
void EVP_PKEY_free(EVP_PKEY* pkey) { OMBRINE_FORWARD(EVP_PKEY_free, pkey); }
int EVP_PKEY_get_base_id(const EVP_PKEY* pkey) { OMBRINE_FORWARD(EVP_PKEY_get_base_id, pkey); }
int EVP_PKEY_get_bits(const EVP_PKEY* pkey) { OMBRINE_FORWARD(EVP_PKEY_get_bits, pkey); }
int EVP_PKEY_get_utf8_string_param(const EVP_PKEY* pkey, const char* key_name, char* str, size_t max_buf_sz,
                                   size_t* out_sz) {
  OMBRINE_FORWARD(EVP_PKEY_get_utf8_string_param, pkey, key_name, str, max_buf_sz, out_sz);
}
EVP_PKEY* PEM_read_bio_PUBKEY(BIO* out, EVP_PKEY** x, pem_password_cb* cb, void* u) {
  OMBRINE_FORWARD(PEM_read_bio_PUBKEY, out, x, cb, u);
}
EVP_PKEY* PEM_read_bio_PrivateKey(BIO* bp, EVP_PKEY** x, pem_password_cb* cb, void* u) {
  OMBRINE_FORWARD(PEM_read_bio_PrivateKey, bp, x, cb, u);
}
int PEM_write_bio_PUBKEY(BIO* bp, const EVP_PKEY* x) { OMBRINE_FORWARD(PEM_write_bio_PUBKEY, bp, x); }
int PEM_write_bio_PrivateKey(BIO* bp, const EVP_PKEY* x, const EVP_CIPHER* enc, const unsigned char* kstr, int klen,
                             pem_password_cb* cb, void* u) {
  OMBRINE_FORWARD(PEM_write_bio_PrivateKey, bp, x, enc, kstr, klen, cb, u);
}
int RAND_bytes(unsigned char* buf, int num) { OMBRINE_FORWARD(RAND_bytes, buf, num); }

// Variadic: the one extra argument depends on the key type, as OpenSSL documents it ("RSA": the
// size_t bits, "EC": the curve's name, the other types none).
EVP_PKEY* EVP_PKEY_Q_keygen(OSSL_LIB_CTX* libctx, const char* propq, const char* type, ...) {
  static const auto real =
      ombrine::sharedFunction<decltype(&::EVP_PKEY_Q_keygen)>(ombrine::kCryptoLibrary, "EVP_PKEY_Q_keygen");
  std::va_list arguments;
  va_start(arguments, type);
  EVP_PKEY* key = nullptr;
  if (std::strcmp(type, "RSA") == 0) {
    key = real(libctx, propq, type, va_arg(arguments, size_t));
  } else if (std::strcmp(type, "EC") == 0) {
    key = real(libctx, propq, type, va_arg(arguments, char*));
  } else {
    key = real(libctx, propq, type);
  }
  va_end(arguments);
  return key;
}

}  // extern "C"
