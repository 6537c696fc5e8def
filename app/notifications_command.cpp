#include "app/notifications_command.hpp"

#include <boost/json.hpp>

#include <iostream>
#include <memory>

#include "app/commands.hpp"
#include "app/failure_text.hpp"
#include "app/global_options.hpp"
#include "app/screen_text.hpp"
#include "app/terminal_text.hpp"
#include "core/values/iso8601.hpp"
#include "core/values/unit_rules.hpp"
#include "core/values/value_json.hpp"
#include "platform/log.hpp"
#include "wiring/services.hpp"

namespace ombrine::app {

namespace {

int runList(bool json) {
  ProgramServices program;
  Services& services = *program;
  auto& center = services.notificationCenter();
  const auto pending = center.pendingNotificationRequests();
  const auto delivered = center.deliveredNotifications();
  if (json) {
    boost::json::array entries;
    for (const auto* list : {&pending, &delivered}) {
      for (const auto& entry : *list) {
        boost::json::object item;
        item["identifier"] = entry.identifier;
        item["state"] = entry.deliveredTo.empty() ? "pending" : "delivered";
        if (!entry.deliveredTo.empty()) item["deliveredTo"] = entry.deliveredTo;
        item["triggerDate"] = iso8601String(Date::fromSystem(entry.triggerDate));
        item["title"] = entry.content.title;
        item["body"] = entry.content.body;
        entries.push_back(std::move(item));
      }
    }
    std::cout << serializeJson(entries) << "\n";
    return 0;
  }
  const ScreenText words(currentLocale());
  std::cout << words.format("Notification spool {}", center.spoolFolder().string()) << "\n";
  if (pending.empty() && delivered.empty()) std::cout << "  " << words("empty") << "\n";
  for (const auto* list : {&pending, &delivered}) {
    for (const auto& entry : *list) {
      // Where it went ("desktop", "spool") is an identifier.
      const std::string at = words.utcTime(Date::fromSystem(entry.triggerDate));
      const std::string state = entry.deliveredTo.empty() ? words.format("pending until {}", at)
                                                          : words.format("delivered ({}) {}", entry.deliveredTo, at);
      std::cout << "\n" << entry.identifier << "\n  " << state << "\n  " << entry.content.title << "\n";
      std::string body = entry.content.body;
      for (std::size_t at = 0; (at = body.find('\n', at)) != std::string::npos; at += 3) body.replace(at, 1, "\n  ");
      std::cout << "  " << body << "\n";
    }
  }
  return 0;
}

int runClear() {
  ProgramServices program;
  Services& services = *program;
  const std::size_t removed = services.notificationCenter().clear();
  const ScreenText words(currentLocale());
  std::cout << words.counted(static_cast<double>(removed), "Removed {} notification from the spool",
                             "Removed {} notifications from the spool")
            << "\n";
  return 0;
}

template <class Run>
void reporting(Run run) {
  try {
    setExitCode(run());
  } catch (const std::exception& error) {
    logf("ombrine notifications: {}", failureText(std::current_exception()));
    setExitCode(1);
  }
}

}  // namespace

void addNotificationsCommand(CLI::App& app) {
  CLI::App* command = app.add_subcommand("notifications", "The notification spool: what is pending and delivered");
  command->require_subcommand(1);
  auto json = std::make_shared<bool>(false);
  CLI::App* list = command->add_subcommand("list", "List pending and delivered notifications");
  list->add_flag("--json", *json, "Print them as JSON");
  list->callback([json] { reporting([&] { return runList(*json); }); });
  CLI::App* clear = command->add_subcommand("clear", "Remove every pending and delivered notification");
  clear->callback([] { reporting([] { return runClear(); }); });
}

}  // namespace ombrine::app
