#include "app/command_report.hpp"

#include <exception>

#include "app/commands.hpp"
#include "core/fetch/geocoder.hpp"
#include "platform/http_client.hpp"
#include "platform/log.hpp"

namespace ombrine::app {

void runReporting(std::string_view command, const std::function<int()>& run, const CommandReporting& reporting) {
  try {
    setExitCode(run());
  } catch (const std::exception& error) {
    for (const FailureWording& wording : reporting.wordings) {
      if (auto line = wording(error)) {
        logf("ombrine {}: {}", command, line->text);
        setExitCode(line->exitCode);
        return;
      }
    }
    if (!reporting.wordOthers) throw;
    logf("ombrine {}: {}", command, failureText(std::current_exception(), reporting.service));
    setExitCode(1);
  }
}

CommandReporting placeCommandReporting(std::string_view reached, std::string_view service) {
  return CommandReporting{
      {wordAs<InvalidPlaceQuery>(2), wordAs<HttpError>(1, "could not reach " + std::string(reached) + ": ")}, service};
}

}  // namespace ombrine::app
