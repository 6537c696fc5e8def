#include "core/errors.hpp"

namespace ombrine {

namespace {
const char* describe(NetworkError::Case which) {
  switch (which) {
    case NetworkError::exceededApiLimit: return "NetworkError.exceededApiLimit";
    case NetworkError::invalidURL: return "NetworkError.invalidURL";
    case NetworkError::invalidResponse: return "NetworkError.invalidResponse";
  }
  return "NetworkError";
}
}  // namespace

NetworkError::NetworkError(Case which) : std::runtime_error(describe(which)), which_(which) {}

}  // namespace ombrine
