#pragma once
#include <CLI/CLI.hpp>

namespace ombrine::app {

// `ombrine serve [--port N] [--bind ADDR] [--open]`: the local web page (forecast, map with
// radar, storms and fires, tides, sun, history, trips) and its JSON API, on 127.0.0.1:8765 by
// default, until Ctrl-C. Prints the page's address on stdout. Beyond loopback the address
// carries the access token the page sends with every request. `--open` opens the page in the
// desktop's browser. Exit codes: 0 stopped, 1 the address could not be bound, 2 bad usage.
void addServeCommand(CLI::App& app);

}  // namespace ombrine::app
