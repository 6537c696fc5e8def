#pragma once
// API credentials of the outside services, held in memory only.
//
// Sources, first present wins: the environment (OMBRINE_FORECA_TOKEN, ...), the user's file
// ~/.config/ombrine/credentials ("name = value" lines, '#' comments), and for the Foreca token
// the tables compiled in at configure time (-DOMBRINE_FORECA_TOKEN=...). The file is refused when
// group or others may read it (passed over when the environment holds a credential). A `Secret` never prints its value:
// log and error texts show
// "<redacted>".

#include <cstdint>
#include <filesystem>
#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace ombrine {

class Secret {
 public:
  explicit Secret(std::string value) : value_(std::move(value)) {}
  // The value itself, only for putting it into a request.
  const std::string& reveal() const noexcept { return value_; }
  bool operator==(const Secret&) const = default;

 private:
  std::string value_;
};

struct Credentials {
  std::optional<Secret> forecaToken;
  std::optional<Secret> openWeatherKey;
  // The RapidAPI key for Meteostat (OMBRINE_METEOSTAT_KEY, or "meteostat_key" in the file).
  std::optional<Secret> meteostatKey;
  // The PEM private key that signs the tile proxy's credential (OMBRINE_TILE_SIGNING_KEY, or
  // "tile_signing_key" in the file); a relative path is taken from the configuration folder.
  std::optional<std::filesystem::path> tileSigningKeyFile;

  // The system weather service's developer token is signed with a private key (PEM, P-256).
  // The key is named by a file (OMBRINE_WEATHERKIT_KEY_FILE, "weatherkit_key_file"), read only
  // when a token is made, or held in memory (`weatherKitKey`, for a throwaway simulator key).
  std::optional<std::filesystem::path> weatherKitKeyFile;
  std::optional<Secret> weatherKitKey;
  std::optional<std::string> weatherKitKeyId;      // OMBRINE_WEATHERKIT_KEY_ID, "weatherkit_key_id"
  std::optional<std::string> weatherKitTeamId;     // OMBRINE_WEATHERKIT_TEAM_ID, "weatherkit_team_id"
  std::optional<std::string> weatherKitServiceId;  // OMBRINE_WEATHERKIT_SERVICE_ID, "weatherkit_service_id"

  // Loads from the environment, then `file` (default: configDirectory()/"credentials"), then
  // the compiled-in tables. Raises FileError when the file exists but is readable by group or
  // others, or cannot be read, or has a malformed line (the message names the line number,
  // never its value) — unless the environment holds a credential: then such a file is passed
  // over and none of its values is used.
  static Credentials load(const std::optional<std::filesystem::path>& file = std::nullopt);
};

// The token built from a 32-byte and a 15-byte table: byte i is table32[i] XOR table15[i % 15].
// A result of all zero bytes (no token configured) gives nothing.
std::optional<Secret> assembleToken(std::span<const std::uint8_t, 32> table32,
                                    std::span<const std::uint8_t, 15> table15);

// The Foreca token compiled in at configure time, if any.
std::optional<Secret> builtInForecaToken();

}  // namespace ombrine
