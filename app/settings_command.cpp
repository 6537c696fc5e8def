#include "app/settings_command.hpp"

#include <fmt/format.h>
#include <boost/json/object.hpp>

#include <algorithm>
#include <array>
#include <cctype>
#include <iostream>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

#include "app/command_report.hpp"
#include "app/commands.hpp"
#include "app/global_options.hpp"
#include "app/screen_text.hpp"
#include "app/terminal_text.hpp"
#include "core/fetch/provider_dispatch.hpp"
#include "core/values/iso8601.hpp"
#include "core/values/unit_rules.hpp"
#include "core/values/value_json.hpp"
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
    throw UsageError(
        fmt::format("invalid value \"{}\" for {}; accepted: true, false (or yes/no, on/off, 1/0)", text, field.key));
  }
  if (std::holds_alternative<std::int64_t>(example.value)) {
    constexpr std::array kSources = {WeatherDataSource::dynamic, WeatherDataSource::apple, WeatherDataSource::foreca,
                                     WeatherDataSource::ow};
    for (WeatherDataSource source : kSources) {
      const auto number = static_cast<std::int64_t>(source);
      if (word == weatherDataSourceName(source) || word == std::to_string(number)) return StoreValue{number};
    }
    throw UsageError(fmt::format("invalid value \"{}\" for {}; accepted: dynamic (0), apple (1), foreca (2), ow (3)",
                                 text, field.key));
  }
  if (additionalHourlyDataPreferenceNamed(text)) return StoreValue{std::string(text)};
  throw UsageError(
      fmt::format("invalid value \"{}\" for {}; accepted: uvi, wind, windAndGust, airQuality, none", text, field.key));
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
  if (field.key == "preferredWeatherProvider") {
    Settings chosen;
    field.read(value, chosen);
    const DataSourceChange change = services->changeDataSource(chosen.preferredWeatherProvider);
    if (change.limitReached) {
      logf(
          "ombrine settings set: {}: {} changes of the data source today; forecasts use {} from their next "
          "scheduled fetch instead of at once",
          DataSourceChangeTracker::kLimitReachedMessage, change.changesBefore + 1,
          weatherDataSourceName(chosen.preferredWeatherProvider));
    }
  } else {
    services->settings().write(field, value);
  }
  return 0;
}

std::string dateText(const ScreenWords& text, const std::optional<Date>& date) {
  return date ? text.utcTime(*date) : std::string(text("unknown"));
}

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

// "20261124T171900Z": the default name of a backup, its moment in UTC.
std::string backupNameOf(Date date) {
  std::string text = iso8601String(date, false);  // 2026-11-24T17:19:00Z
  std::erase(text, '-');
  std::erase(text, ':');
  return text;
}

void printSnapshotRow(const ScreenWords& text, std::string_view name, const KeyValueSnapshot& snapshot) {
  std::cout << padRight(name, 24) << dateText(text, snapshot.date) << "  "
            << text.counted(static_cast<double>(snapshot.values.size()), "{} key", "{} keys") << ", "
            << text.counted(static_cast<double>(snapshot.byteCount), "{} byte", "{} bytes") << "\n";
}

// `settings backup [NAME]`: a backup of the synced store now, named NAME (default: its UTC time).
int backup(const Options& options) {
  ProgramServices services;
  const Date now = Date::fromSystem(services->clock().now());
  const std::string name = options.key.empty() ? backupNameOf(now) : options.key;
  if (!isValidBackupName(name))
    throw UsageError(
        fmt::format("\"{}\" cannot name a backup: use letters, digits, "
                    "'-', '_' or '.' (not latest or previous)",
                    name));
  const KeyValueSnapshot taken =
      backupKeyValueStoreNamed(name, now, services->syncedStore(), services->standardDefaults());
  if (options.json) {
    boost::json::object out = snapshotJson(taken).as_object();
    out["name"] = name;
    std::cout << serializeJson(out) << "\n";
    return 0;
  }
  const ScreenText text(currentLocale());
  std::cout << text.format("backed up {} as {}; restore with: ombrine settings restore {}",
                           text.counted(static_cast<double>(taken.values.size()), "{} key", "{} keys"), name, name)
            << "\n";
  return 0;
}

// `settings restore`: the backups kept; `settings restore NAME`: writes that one's keys back.
int restore(const Options& options) {
  ProgramServices services;
  if (options.key.empty()) {
    const auto snapshots = keyValueSnapshots(services->standardDefaults());
    if (options.json) {
      boost::json::array out;
      for (const NamedKeyValueSnapshot& kept : snapshots) {
        boost::json::object row = snapshotJson(kept.snapshot).as_object();
        row["name"] = kept.name;
        out.push_back(std::move(row));
      }
      std::cout << serializeJson(out) << "\n";
      return 0;
    }
    const ScreenText text(currentLocale());
    if (snapshots.empty()) std::cout << text("no backups yet; take one with: ombrine settings backup [NAME]") << "\n";
    for (const NamedKeyValueSnapshot& kept : snapshots) printSnapshotRow(text, kept.name, kept.snapshot);
    if (!snapshots.empty()) std::cout << text("restore one with: ombrine settings restore NAME") << "\n";
    return 0;
  }
  const KeyValueSnapshot restored =
      restoreKeyValueStoreFromSnapshot(options.key, services->standardDefaults(), services->syncedStore());
  if (options.json) {
    std::cout << serializeJson(snapshotJson(restored)) << "\n";
  } else {
    const ScreenText text(currentLocale());
    std::cout << text.format("restored {} from the backup {} of {}",
                             text.counted(static_cast<double>(restored.values.size()), "{} key", "{} keys"),
                             options.key, dateText(text, restored.date))
              << "\n";
  }
  return 0;
}

void report(const char* name, const std::function<int()>& run) {
  static const CommandReporting reporting{
      {wordAs<UsageError>(2), wordAs<PropertyListError>(1, "the backup cannot be read: "),
       wordAs<std::runtime_error>(1)},
      "the weather service",
      false};
  runReporting(std::string("settings ") + name, run, reporting);
}

}  // namespace

void addSettingsCommand(CLI::App& app) {
  CLI::App* settings =
      app.add_subcommand("settings", "Show and change the settings (kept in the synced key-value store)");
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
  setCommand
      ->add_option("value", options->value,
                   "true/false; a provider (dynamic, apple, foreca, ow); or uvi, wind, windAndGust, airQuality, none")
      ->required();
  setCommand->callback([options] { report("set", [&] { return set(*options); }); });

  CLI::App* backupCommand = settings->add_subcommand(
      "backup", "Take a local backup of the synced store now (besides the daily one every command makes)");
  backupCommand->add_option("name", options->key, "Its name (default: its UTC time, e.g. 20261124T171900Z)");
  backupCommand->add_flag("--json", options->json, "Print the backup taken as JSON");
  backupCommand->callback([options] { report("backup", [&] { return backup(*options); }); });

  CLI::App* restoreCommand = settings->add_subcommand(
      "restore", "List the backups; with NAME write that backup's keys back into the synced store");
  restoreCommand->add_option("name", options->key, "A backup's name, or latest / previous for the daily ones");
  restoreCommand->add_flag("--json", options->json, "Print the backups, or what was restored, as JSON");
  restoreCommand->callback([options] { report("restore", [&] { return restore(*options); }); });
}

}  // namespace ombrine::app
