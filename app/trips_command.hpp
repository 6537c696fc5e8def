#pragma once
#include <CLI/CLI.hpp>

namespace ombrine::app {

// `ombrine trips add|list|show|edit|remove`: the user's trips, kept in the synced key-value
// store under "trips" (the same list every process and machine sees).
//
// Places are given by name (the offline geocoder's best match) or `--at LAT,LON`; dates are
// YYYY-MM-DD, read as days of the destination (an all-day trip), or "YYYY-MM-DD HH:MM" on the
// destination's clock (a trip with times: a skipped time is refused, a repeated one is the first).
// `list` shows each trip's row weather when the trip cache holds a record for it (no fetching). A trip is named on the
// command line by its id, an id prefix of at least 4 characters, or its (shown) name, ignoring case. Exit codes: 0 ok;
// 2 for input the rules refuse (one line on stderr: the rule's message), an unreadable date or place text, or an
// ambiguous trip; 1 when no trip matches or the store cannot be read or written.
//
// Returns the `trips` command so that other files can add subcommands to it
// (`addTripsCommand(app)->add_subcommand(...)`, or `app.get_subcommand("trips")`).
CLI::App* addTripsCommand(CLI::App& app);

}  // namespace ombrine::app
