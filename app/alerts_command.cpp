#include "app/alerts_command.hpp"

#include <boost/json.hpp>

#include <iostream>
#include <memory>

#include "app/command_report.hpp"
#include "app/commands.hpp"
#include "app/daemon_command.hpp"
#include "app/failure_text.hpp"
#include "app/global_options.hpp"
#include "app/screen_text.hpp"
#include "app/terminal_text.hpp"
#include "core/fetch/geocoder.hpp"
#include "core/values/errors.hpp"
#include "core/values/iso8601.hpp"
#include "core/values/unit_rules.hpp"
#include "core/values/value_json.hpp"
#include "notifications/weather_alert_notification_state.hpp"
#include "persistence/favorite_store.hpp"
#include "platform/http_client.hpp"
#include "platform/log.hpp"
#include "wiring/geocode_namer.hpp"
#include "wiring/weather_alerts.hpp"

namespace ombrine::app {

namespace {

struct AlertsOptions {
  std::string place;
  bool json = false;
};

struct ResolvedPlace {
  Location location;
  GeoDetails details;
  std::string name;
};

// The named place, else the home place.
ResolvedPlace resolve(Services& services, const std::string& query) {
  if (query.empty()) {
    const auto home = services.home().home();
    if (!home) throw InvalidPlaceQuery("name a place (e.g. Miami) or set a home place: ombrine places home PLACE");
    return ResolvedPlace{home->location, services.namer().detailsOf(home->location), home->shownName()};
  }
  const auto matches = services.geocoder().search(query, 1);
  if (matches.empty())
    throw DomainError(kNoResultErrorDomain, kNoResultErrorCode, "no place named " + quotedInput(query));
  const Location location = matches.front().coordinate;
  return ResolvedPlace{location, services.namer().detailsOf(location), matches.front().name};
}

// What the state and the center say of one alert.
struct AlertStatus {
  std::string state = "not notified";  // "notified", "reserved", "not notified"
  std::optional<std::string> identifier;
  std::optional<NotificationEntry> request;  // delivered or pending
};

AlertStatus statusOf(const OneCallWeather::Alert& alert,
                     const std::optional<WeatherAlertNotificationPersistedState>& state,
                     const std::vector<NotificationEntry>& pending, const std::vector<NotificationEntry>& delivered) {
  AlertStatus status;
  if (!state) return status;
  const WeatherAlertNotificationKey key{alert.event, alert.senderName};
  for (const auto& value : state->recordValues) {
    const auto record = decodeWeatherAlertRecord(value);
    if (!record || record->key() != key) continue;
    status.state = "notified";
    status.identifier = record->scheduledNotificationIdentifier;
  }
  for (const auto& attempt : state->pendingAttempts) {
    if (attempt.insertedKeys.contains(key) && status.identifier == attempt.notificationIdentifier())
      status.state = "reserved";
  }
  if (!status.identifier) return status;
  for (const auto* list : {&delivered, &pending}) {
    for (const auto& entry : *list) {
      if (entry.identifier == *status.identifier) status.request = entry;
    }
  }
  return status;
}

std::string when(std::chrono::system_clock::time_point time, const TimeZone& zone) {
  return formatWeatherAlertDate(Date::fromSystem(time), zone, currentLocale());
}

int runAlerts(const AlertsOptions& options) {
  ProgramServices program;
  Services& services = *program;
  const ResolvedPlace place = resolve(services, options.place);
  const OneCallWeather weather = fetchWeatherAlerts(services, place.location, place.details);
  const auto store = openWeatherAlertStore(services.sharedDefaults());
  std::optional<WeatherAlertNotificationPersistedState> state;
  if (store) state = store->read();
  auto& center = services.notificationCenter();
  const auto pending = center.pendingNotificationRequests();
  const auto delivered = center.deliveredNotifications();
  const Date now = Date::fromSystem(services.clock().now());
  std::vector<OneCallWeather::Alert> live;
  for (const auto& alert : weather.alerts.value_or(std::vector<OneCallWeather::Alert>{})) {
    if (!alert.end || *alert.end > now) live.push_back(alert);
  }
  const TimeZone& zone = place.details.timeZone;

  if (options.json) {
    boost::json::object root;
    root["place"] = place.name;
    boost::json::array alerts;
    for (const auto& alert : live) {
      const AlertStatus status = statusOf(alert, state, pending, delivered);
      boost::json::object item;
      item["event"] = alert.event;
      item["senderName"] = alert.senderName;
      item["severity"] = std::string(weatherSeverityName(alert.severity.value_or(WeatherSeverity::unknown)));
      item["start"] = iso8601String(alert.start);
      item["end"] = alert.end ? boost::json::value(iso8601String(*alert.end)) : boost::json::value(nullptr);
      boost::json::object notification;
      notification["state"] = status.state;
      notification["identifier"] =
          status.identifier ? boost::json::value(*status.identifier) : boost::json::value(nullptr);
      if (status.request) {
        notification["deliveredTo"] = status.request->deliveredTo.empty() ? "pending" : status.request->deliveredTo;
        notification["date"] = iso8601String(Date::fromSystem(status.request->triggerDate));
      }
      item["notification"] = std::move(notification);
      alerts.push_back(std::move(item));
    }
    root["alerts"] = std::move(alerts);
    std::cout << serializeJson(root) << "\n";
    return 0;
  }
  const ScreenText text(currentLocale());
  std::cout << text.format("Weather alerts for {}", place.name) << "\n";
  if (live.empty()) std::cout << "  " << text("none in force") << "\n";
  for (const auto& alert : live) {
    const AlertStatus status = statusOf(alert, state, pending, delivered);
    const auto content = weatherAlertNotificationContent({alert}, zone, currentLocale());
    std::cout << "\n" << content.title << ": " << alert.event << " (" << alert.senderName << ")\n";
    const std::string start = formatWeatherAlertDate(alert.start, zone, currentLocale());
    std::cout << "  "
              << (alert.end
                      ? text.format("from {} to {}", start, formatWeatherAlertDate(*alert.end, zone, currentLocale()))
                      : text.format("from {}", start))
              << "\n";
    if (status.state == "notified" && status.request) {
      const std::string& to = status.request->deliveredTo;
      const std::string_view where = to == "desktop" ? text(", shown on the desktop")
                                     : to == "spool" ? text(", delivered to the spool")
                                                     : std::string_view();
      const std::string_view message = to.empty() ? "notified (pending) {} as {}" : "notified {} as {}";
      std::cout << "  " << text.format(message, when(status.request->triggerDate, zone), *status.identifier) << where
                << "\n";
    } else if (status.state == "notified") {
      std::cout << "  "
                << (status.identifier ? text.format("notified as {}", *status.identifier)
                                      : std::string(text("notified (before this version)")))
                << "\n";
    } else {
      std::cout << "  " << text(status.state) << "\n";
    }
  }
  return 0;
}

int runNotify(const AlertsOptions& options) {
  ProgramServices program;
  Services& services = *program;
  const ResolvedPlace place = resolve(services, options.place);
  const OneCallWeather weather = fetchWeatherAlerts(services, place.location, place.details);
  const auto store = openWeatherAlertStore(services.sharedDefaults());
  const auto outcome = notifyWeatherAlertsOnce(services, store.get(), services.sharedDefaults(), services.syncedStore(),
                                               weather, place.details.timeZone);
  // Stay for our own request's 5 seconds, so it reaches the desktop or the spool.
  deliverNotificationsDueWithin(services, WeatherAlertNotificationState::kTriggerDelay + std::chrono::seconds(1));
  if (outcome.failed) return 1;
  const ScreenText text(currentLocale());
  if (!outcome.request) {
    std::cout << text.format("No new weather alerts for {}", place.name) << "\n";
    return 0;
  }
  const std::size_t count = outcome.announcedKeys.size();
  std::cout << text.format(count == 1 ? "Announced {} weather alert for {} as {}:"
                                      : "Announced {} weather alerts for {} as {}:",
                           text.number(static_cast<double>(count)), place.name, outcome.request->identifier)
            << "\n"
            << outcome.request->content.title << "\n"
            << outcome.request->content.body << "\n";
  return 0;
}

CommandReporting alertsReporting() { return placeCommandReporting("the warnings service", "the warning service"); }

}  // namespace

void addAlertsCommand(CLI::App& app) {
  auto options = std::make_shared<AlertsOptions>();
  CLI::App* command = app.add_subcommand("alerts", "The weather warnings in force for a place and their notifications");
  command->add_option("place", options->place, "A place name (\"Miami\"); default: the home place");
  command->add_flag("--json", options->json, "Print the warnings as JSON");
  command->callback([options] {
    runReporting(
        "alerts", [&] { return runAlerts(*options); }, alertsReporting());
  });
}

void addNotifyCommand(CLI::App& app) {
  CLI::App* notify = app.add_subcommand("notify", "Run a notification pass now");
  notify->require_subcommand(1);
  auto options = std::make_shared<AlertsOptions>();
  CLI::App* alerts = notify->add_subcommand("alerts", "Announce the new weather warnings of a place, each once");
  alerts->add_option("place", options->place, "A place name (\"Miami\"); default: the home place");
  alerts->callback([options] {
    runReporting(
        "notify alerts", [&] { return runNotify(*options); }, alertsReporting());
  });
  addNotifyRainCommand(*notify);
}

}  // namespace ombrine::app
