#include "app/serve_command.hpp"

#include <spawn.h>
#include <sys/wait.h>

#include <boost/asio/signal_set.hpp>

#include <csignal>
#include <iostream>
#include <memory>

#include "app/commands.hpp"
#include "app/failure_text.hpp"
#include "app/global_options.hpp"
#include "platform/log.hpp"
#include "platform/paths.hpp"
#include "web/web_server.hpp"

extern char** environ;

namespace ombrine::app {

namespace {

struct ServeOptions {
  int port = 8765;
  std::string bind = "127.0.0.1";
  bool open = false;
};

// Hands the address to the desktop's opener; the page still serves when there is none.
void openInBrowser(const std::string& address) {
  const char* arguments[] = {"xdg-open", address.c_str(), nullptr};
  pid_t child = 0;
  if (::posix_spawnp(&child, "xdg-open", nullptr, nullptr, const_cast<char* const*>(arguments), environ) != 0) {
    logf("ombrine serve: no xdg-open to open {}; open it in a browser", address);
  }
}

int run(const ServeOptions& options) {
  ProgramServices program;
  Services& services = *program;
  web::WebServer server(services, {options.bind, options.port, {}, resourceDirectory() / "web"});
  server.bind();
  asio::signal_set signals(services.runtime().context(), SIGINT, SIGTERM);
  signals.async_wait([&server](const boost::system::error_code& error, int) {
    if (!error) server.stop();
  });
  std::cout << "Serving " << server.pageAddress() << " (Ctrl-C ends)" << std::endl;
  if (options.open) openInBrowser(server.pageAddress());
  server.run();
  boost::system::error_code ignored;
  signals.cancel(ignored);
  return 0;
}

}  // namespace

void addServeCommand(CLI::App& app) {
  auto options = std::make_shared<ServeOptions>();
  CLI::App* command = app.add_subcommand("serve", "A local web page with the forecast, the radar map and trips");
  command->add_option("--port", options->port, "The port (default 8765; 0: any free port)")
      ->check(CLI::Range(0, 65535));
  command->add_option("--bind", options->bind,
                      "The address to listen on (default 127.0.0.1); beyond loopback the page needs the printed token");
  command->add_flag("--open", options->open, "Open the page in the desktop's browser");
  command->callback([options] {
    try {
      setExitCode(run(*options));
    } catch (const std::exception&) {
      logf("ombrine serve: {}", failureText(std::current_exception()));
      setExitCode(1);
    }
  });
}

}  // namespace ombrine::app
