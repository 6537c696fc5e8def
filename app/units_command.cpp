#include "app/units_command.hpp"

#include <iostream>
#include <memory>
#include <string>

#include "platform/icu_setup.hpp"

namespace ombrine::app {

void addUnitsCommand(CLI::App& app) {
  auto locale = std::make_shared<std::string>("en_US");
  CLI::App* command = app.add_subcommand("units", "Show how values are formatted for a locale");
  command->add_option("--locale", *locale, "ICU locale, e.g. en_US, en_GB, de_DE, fr_CA, ja_JP");
  command->callback([locale] {
    std::cout << "locale " << *locale << ", time-zone data " << timeZoneDataVersion() << "\n";
  });
}

}  // namespace ombrine::app
