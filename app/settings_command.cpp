#include "app/settings_command.hpp"

#include <boost/json/object.hpp>
#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <iostream>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

#include "app/commands.hpp"
#include "app/global_options.hpp"
#include "core/iso8601.hpp"
#include "core/provider_dispatch.hpp"
#include "core/value_json.hpp"
#include "persistence/key_value_backup.hpp"
#include "persistence/property_list.hpp"
#include "persistence/settings_store.hpp"
#include "platform/errors.hpp"
#include "platform/log.hpp"

namespace ombrine::app {

namespace {

// A key or value the user typed that names no setting or no value of it.
class UsageError : public std::invalid_argument {
 public:
  using std::invalid_argument::invalid_argument;
};

struct Options {
  std::string key;
  std::string value;
  bool json = false;
};

const SettingsField& fieldNamed(std::string_view key) {
  for (const SettingsField& field : settingsFields()) {
    if (field.key == key) return field;
  }
  std::string known;
  for (const SettingsField& field : settingsFields()) known += (known.empty() ? "" : ", ") + std::string(field.key);
  throw UsageError(fmt::format("unknown setting \"{}\"; the settings are: {}", key, known));
}

// The value as the user reads and types it: booleans as true/false, the provider by name,
// the additional hourly data by its text.
std::string shown(const SettingsField& field, const Settings& settings) {
  const StoreValue stored = field.stored(settings);
  if (const auto* b = std::get_if<bool>(&stored.value)) return *b ? "true" : "false";
  if (const auto* i = std::get_if<std::int64_t>(&stored.value)) {
    return std::string(weatherDataSourceName(static_cast<WeatherDataSource>(*i)));
  }
  return std::get<std::string>(stored.value);
}

std::string lower(std::string_view text) {
  std::string out(text);
  std::transform(out.begin(), out.end(), out.begin(), [](unsigned char c) { return std::tolower(c); });
  return out;
}

// The stored form of `text` for `field`; raises UsageError listing what is accepted.
StoreValue parsed(const SettingsField& field, std::string_view text) {
  const StoreValue example = field.stored(Settings{});
  const std::string word = lower(text);
  if (std::holds_alternative<bool>(example.value)) {
    if (word == "true" || word == "yes" || word == "on" || word == "1") return StoreValue{true};
    if (word == "false" || word == "no" || word == "off" || word == "0") return StoreValue{false};
    throw UsageError(fmt::format("invalid value \"{}\" for {}; accepted: true, false (or yes/no, on/off, 1/0)",
                                 text, field.key));
  }
  if (std::holds_alternative<std::int64_t>(example.value)) {
    constexpr std::array kSources = {WeatherDataSource::dynamic, WeatherDataSource::apple, WeatherDataSource::foreca,
                                     WeatherDataSource::ow};
    for (WeatherDataSource source : kSources) {
      const auto number = static_cast<std::int64_t>(source);
      if (word == weatherDataSourceName(source) || word == std::to_string(number)) return StoreValue{number};
    }
    throw UsageError(fmt::format(
        "invalid value \"{}\" for {}; accepted: dynamic (0), apple (1), foreca (2), ow (3)", text, field.key));
  }
  if (additionalHourlyDataPreferenceNamed(text)) return StoreValue{std::string(text)};
  throw UsageError(fmt::format("invalid value \"{}\" for {}; accepted: uvi, wind, windAndGust, airQuality, none",
                               text, field.key));
}

boost::json::value jsonValue(const SettingsField& field, const Settings& settings) {
  const StoreValue stored = field.stored(settings);
  if (const auto* b = std::get_if<bool>(&stored.value)) return *b;
  return boost::json::value(shown(field, settings));
}


int list(const Options& options) {
  ProgramServices services;
  const Settings settings = services->settings().settings();
  if (options.json) {
    boost::json::object out;
    for (const SettingsField& field : settingsFields()) out[field.key] = jsonValue(field, settings);
    std::cout << serializeJson(out) << "\n";
    return 0;
  }
  for (const SettingsField& field : settingsFields()) {
    std::cout << fmt::format("{:<31}{}\n", field.key, shown(field, settings));
  }
  return 0;
}

int get(const Options& options) {
  const SettingsField& field = fieldNamed(options.key);
  ProgramServices services;
  const Settings settings = services->settings().settings();
  if (options.json) {
    std::cout << serializeJson(jsonValue(field, settings)) << "\n";
  } else {
    std::cout << shown(field, settings) << "\n";
  }
  return 0;
}

int set(const Options& options) {
  const SettingsField& field = fieldNamed(options.key);
  const StoreValue value = parsed(field, options.value);
  ProgramServices services;
  SettingsStore& store = services->settings();
  if (field.key == "preferredWeatherProvider") {
    Settings chosen;
    field.read(value, chosen);
    const DataSourceChange change = services->changeDataSource(chosen.preferredWeatherProvider);
    if (change.limitReached) {
      logf("ombrine settings set: {}: {} changes of the data source today; forecasts use {} from their next "
           "scheduled fetch instead of at once",
           DataSourceChangeTracker::kLimitReachedMessage, change.changesBefore + 1,
           weatherDataSourceName(chosen.preferredWeatherProvider));
    }
  } else {
    store.update([&](Settings& settings) { field.read(value, settings); });
  }
  if (!store.flush()) {
    logf("ombrine settings set: the setting is kept on this machine; the sync folder could not be written");
    return 1;
  }
  return 0;
}

std::string dateText(const std::optional<Date>& date) { return date ? iso8601String(*date) : "unknown"; }

boost::json::value snapshotJson(const std::optional<KeyValueSnapshot>& snapshot) {
  if (!snapshot) return nullptr;
  boost::json::object out;
  out["date"] = snapshot->date ? boost::json::value(iso8601String(*snapshot->date)) : boost::json::value(nullptr);
  out["keyCount"] = snapshot->values.size();
  out["byteCount"] = snapshot->byteCount;
  boost::json::array keys;
  for (const auto& [key, value] : snapshot->values) keys.emplace_back(key);
  out["keys"] = std::move(keys);
  return out;
}

std::string_view outcomeText(KeyValueBackupOutcome outcome) {
  switch (outcome) {
    case KeyValueBackupOutcome::alreadyBackedUpToday: return "already backed up today";
    case KeyValueBackupOutcome::emptyStore: return "the cloud store is empty; the snapshots are kept as they are";
    case KeyValueBackupOutcome::serializationFailed: return "the cloud store could not be serialised; nothing changed";
    case KeyValueBackupOutcome::backedUp: return "backed up";
  }
  return "";
}

int backup(const Options& options) {
  // Opening the stores runs the daily backup; this runs it again to learn its outcome, which is
  // then "already backed up today" unless the first run could not write.
  ProgramServices services;
  FileCloudKeyValueStore& cloud = services->syncedStore();
  FileKeyValueStore& defaults = services->standardDefaults();
  const auto outcome =
      backupKeyValueStoreIfNeeded(Date::fromSystem(services->clock().now()), TimeZone::current(), cloud, defaults);
  const auto latest = latestKeyValueSnapshot(defaults);
  const auto previous = previousKeyValueSnapshot(defaults);
  if (options.json) {
    boost::json::object out;
    out["latest"] = snapshotJson(latest);
    out["previous"] = snapshotJson(previous);
    std::cout << serializeJson(out) << "\n";
    return 0;
  }
  if (outcome != KeyValueBackupOutcome::alreadyBackedUpToday) std::cout << outcomeText(outcome) << "\n";
  auto row = [](std::string_view label, const std::optional<KeyValueSnapshot>& snapshot) {
    if (!snapshot) {
      std::cout << fmt::format("{:<10}none\n", label);
      return;
    }
    std::cout << fmt::format("{:<10}{}  {} keys, {} bytes\n", label, dateText(snapshot->date), snapshot->values.size(),
                             snapshot->byteCount);
  };
  row("latest", latest);
  row("previous", previous);
  return 0;
}

int restore(const Options& options) {
  ProgramServices services;
  FileCloudKeyValueStore& cloud = services->syncedStore();
  const KeyValueSnapshot restored = restoreKeyValueStoreFromLatestSnapshot(services->standardDefaults(), cloud);
  if (options.json) {
    std::cout << serializeJson(snapshotJson(restored)) << "\n";
  } else {
    std::cout << fmt::format("restored {} keys from the snapshot of {}\n", restored.values.size(), dateText(restored.date));
  }
  return 0;
}

template <class Run>
void report(const char* name, Run run) {
  try {
    setExitCode(run());
  } catch (const UsageError& error) {
    logf("ombrine settings {}: {}", name, error.what());
    setExitCode(2);
  } catch (const PropertyListError& error) {
    logf("ombrine settings {}: the backup cannot be read: {}", name, error.what());
    setExitCode(1);
  } catch (const std::runtime_error& error) {
    logf("ombrine settings {}: {}", name, error.what());
    setExitCode(1);
  }
}

}  // namespace

void addSettingsCommand(CLI::App& app) {
  CLI::App* settings = app.add_subcommand("settings", "Show and change the settings (kept in the synced key-value store)");
  settings->require_subcommand(1);
  auto options = std::make_shared<Options>();

  CLI::App* listCommand = settings->add_subcommand("list", "Every setting with its value");
  listCommand->add_flag("--json", options->json, "Print a JSON object");
  listCommand->callback([options] { report("list", [&] { return list(*options); }); });

  CLI::App* getCommand = settings->add_subcommand("get", "The value of one setting");
  getCommand->add_option("key", options->key, "The setting, e.g. preferredWeatherProvider")->required();
  getCommand->add_flag("--json", options->json, "Print the value as JSON");
  getCommand->callback([options] { report("get", [&] { return get(*options); }); });

  CLI::App* setCommand = settings->add_subcommand("set", "Change one setting");
  setCommand->add_option("key", options->key, "The setting, e.g. hideTides")->required();
  setCommand->add_option("value", options->value,
                         "true/false; a provider (dynamic, apple, foreca, ow); or uvi, wind, windAndGust, airQuality, none")
      ->required();
  setCommand->callback([options] { report("set", [&] { return set(*options); }); });

  CLI::App* backupCommand = settings->add_subcommand(
      "backup", "Make today's local backup of the synced store (once a day) and show the snapshots");
  backupCommand->add_flag("--json", options->json, "Print the snapshots as JSON");
  backupCommand->callback([options] { report("backup", [&] { return backup(*options); }); });

  CLI::App* restoreCommand =
      settings->add_subcommand("restore", "Write the latest backup snapshot back into the synced store");
  restoreCommand->add_flag("--json", options->json, "Print what was restored as JSON");
  restoreCommand->callback([options] { report("restore", [&] { return restore(*options); }); });
}

}  // namespace ombrine::app
