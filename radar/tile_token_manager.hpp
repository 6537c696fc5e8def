#pragma once
// The one holder of the tile proxy's short-lived token.
//
// It exchanges a platform-issued signed credential at the proxy's "token" endpoint for a token,
// keeps the token in memory and in the shared defaults (so a restart and the other processes of
// the container reuse it), treats a token with 60 seconds or less left as expired, and lets any
// number of concurrent callers share a single exchange.
//
// Context: all state belongs to the manager's strand; `token` and `invalidateToken` hop onto it
// and resume the caller on its own executor. The exchange runs as a task of its own on that
// strand: a caller that is cancelled stops waiting for it (with CancellationError) but neither
// stops it nor fails the other callers. The running exchange keeps the manager's state alive,
// so the manager may go first; the HTTP client, clock, defaults and issuer must outlive the
// runtime's work. Nothing retries on a timer: the caller decides.

#include <boost/url/url.hpp>

#include <cstdint>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "core/values/date.hpp"
#include "platform/async/coroutines.hpp"
#include "platform/clock.hpp"
#include "platform/credential_issuer.hpp"
#include "platform/http_client.hpp"
#include "platform/key_value_store.hpp"

namespace ombrine {

class TileTokenManager {
 public:
  static constexpr double kExpirySkewSeconds = 60.0;
  static constexpr const char* kTokenKey = "tile_token.jwt";
  static constexpr const char* kExpiryKey = "tile_token.expiresAt";
  static constexpr const char* kCredentialKey = "tile_token.appTransactionJws";
  // The request header every proxy request carries the token in.
  static constexpr const char* kTokenHeader = "X-Ombrine-Tile-Token";

  // The proxy refused the credential (401 or 403).
  class MintError : public std::runtime_error {
   public:
    enum Case { unauthorized };
    explicit MintError(Case which) : std::runtime_error("tile token: credential refused"), which_(which) {}
    Case which() const noexcept { return which_; }

   private:
    Case which_;
  };

  struct TokenRequest {
    std::string appTransactionJws;
  };
  struct TokenResponse {
    std::string token;
    std::int64_t expiresAt = 0;  // seconds since 1970
  };

  // `proxy` is the tile proxy's base URL; `defaults` is the shared suite. Every reference must
  // outlive the manager.
  TileTokenManager(Strand strand, HttpClient& http, const Clock& clock, boost::urls::url proxy, KeyValueStore& defaults,
                   CredentialIssuer& issuer);

  // A token with more than 60 seconds left: from memory, else the defaults, else the running
  // exchange, else a new one. Raises what the exchange raises: NetworkError (invalidResponse for
  // a refused fresh credential or an error status, exceededApiLimit never), MintError only
  // internally, CredentialError from the issuer, HttpError, DecodingError, CancellationError.
  Task<std::string> token();

  // Forgets the token in memory and in the defaults; the credential and a running exchange stay.
  Task<void> invalidateToken();

 private:
  struct State;
  std::shared_ptr<State> state_;
};

// The token endpoint's JSON: {"appTransactionJws": ...} out, {"token", "expiresAt"} in.
// Raises DecodingError.
std::string encodeTokenRequest(const TileTokenManager::TokenRequest& request);
TileTokenManager::TokenResponse decodeTokenResponse(std::string_view json);

// `base` with `segment` appended to its path (a '/' in `segment` separates components).
boost::urls::url appendingPathComponent(const boost::urls::url& base, std::string_view segment);

}  // namespace ombrine
