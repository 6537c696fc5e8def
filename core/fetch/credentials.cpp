#include "core/fetch/credentials.hpp"

#include <sys/stat.h>

#include <algorithm>
#include <cstdlib>
#include <iterator>
#include <map>
#include <sstream>

#include "core/fetch/foreca_token_tables.hpp"
#include "platform/atomic_file.hpp"
#include "platform/errors.hpp"
#include "platform/paths.hpp"

namespace ombrine {

namespace {

std::string trim(std::string_view text) {
  const auto first = text.find_first_not_of(" \t\r");
  if (first == std::string_view::npos) return {};
  const auto last = text.find_last_not_of(" \t\r");
  return std::string(text.substr(first, last - first + 1));
}

constexpr const char* kEnvironmentNames[] = {"OMBRINE_FORECA_TOKEN", "OMBRINE_OPENWEATHER_KEY",
                                             "OMBRINE_METEOSTAT_KEY"};

std::map<std::string, std::string> readCredentialFile(const std::filesystem::path& file) {
  struct stat st {};
  if (::stat(file.c_str(), &st) != 0) return {};
  if ((st.st_mode & (S_IRWXG | S_IRWXO)) != 0) {
    throw FileError("refusing " + file.string() + ": it is readable by group or others (run: chmod 600 " +
                    file.string() + ")");
  }
  std::map<std::string, std::string> values;
  std::istringstream lines(readFileIfExists(file).value_or(""));
  std::string line;
  for (int number = 1; std::getline(lines, line); ++number) {
    const std::string content = trim(line);
    if (content.empty() || content.front() == '#') continue;
    const auto equals = content.find('=');
    if (equals == std::string::npos || trim(content.substr(0, equals)).empty()) {
      throw FileError(file.string() + ":" + std::to_string(number) + ": expected 'name = value'");
    }
    values[trim(content.substr(0, equals))] = trim(content.substr(equals + 1));
  }
  return values;
}

std::optional<Secret> pick(const char* environmentName, const std::map<std::string, std::string>& file,
                           const char* fileName) {
  if (const char* value = std::getenv(environmentName); value && *value) return Secret(value);
  if (auto it = file.find(fileName); it != file.end() && !it->second.empty()) return Secret(it->second);
  return std::nullopt;
}

}  // namespace

Credentials Credentials::load(const std::optional<std::filesystem::path>& file) {
  std::map<std::string, std::string> values;
  try {
    values = readCredentialFile(file.value_or(configDirectory() / "credentials"));
  } catch (const FileError&) {
    // The environment comes first: with a credential there, a file that cannot be used is
    // passed over (its values stay unused) rather than refusing the run.
    const bool fromEnvironment =
        std::any_of(std::begin(kEnvironmentNames), std::end(kEnvironmentNames), [](const char* name) {
          const char* value = std::getenv(name);
          return value != nullptr && *value != '\0';
        });
    if (!fromEnvironment) throw;
  }
  Credentials credentials;
  credentials.forecaToken = pick("OMBRINE_FORECA_TOKEN", values, "foreca_token");
  if (!credentials.forecaToken) credentials.forecaToken = builtInForecaToken();
  credentials.openWeatherKey = pick("OMBRINE_OPENWEATHER_KEY", values, "openweather_key");
  credentials.meteostatKey = pick("OMBRINE_METEOSTAT_KEY", values, "meteostat_key");
  if (const auto key = pick("OMBRINE_TILE_SIGNING_KEY", values, "tile_signing_key")) {
    std::filesystem::path path(key->reveal());
    credentials.tileSigningKeyFile = path.is_absolute() ? path : configDirectory() / path;
  }
  auto plain = [&](const char* environmentName, const char* fileName) -> std::optional<std::string> {
    auto secret = pick(environmentName, values, fileName);
    return secret ? std::optional(secret->reveal()) : std::nullopt;
  };
  if (auto keyFile = plain("OMBRINE_WEATHERKIT_KEY_FILE", "weatherkit_key_file")) {
    credentials.weatherKitKeyFile = std::filesystem::path(*keyFile);
  }
  credentials.weatherKitKeyId = plain("OMBRINE_WEATHERKIT_KEY_ID", "weatherkit_key_id");
  credentials.weatherKitTeamId = plain("OMBRINE_WEATHERKIT_TEAM_ID", "weatherkit_team_id");
  credentials.weatherKitServiceId = plain("OMBRINE_WEATHERKIT_SERVICE_ID", "weatherkit_service_id");
  return credentials;
}

std::optional<Secret> assembleToken(std::span<const std::uint8_t, 32> table32,
                                    std::span<const std::uint8_t, 15> table15) {
  std::string token(32, '\0');
  for (size_t i = 0; i < 32; ++i) {
    token[i] = static_cast<char>(table32[i] ^ table15[i % 15]);
  }
  if (std::all_of(token.begin(), token.end(), [](char c) { return c == '\0'; })) return std::nullopt;
  return Secret(std::move(token));
}

std::optional<Secret> builtInForecaToken() {
  return assembleToken(std::span<const std::uint8_t, 32>(kForecaTokenTable32),
                       std::span<const std::uint8_t, 15>(kForecaTokenTable15));
}

}  // namespace ombrine
