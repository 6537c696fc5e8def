#pragma once
// The one way the storm sources ask the agencies' sites for a file.
//
// A GET with the given Accept header and a 60-second time-out; a status other than 200 raises
// NetworkError(invalidResponse) (the bad-server-response case). Transport failures are the
// HttpClient's HttpError; cancellation is CancellationError. Runs on the caller's executor.

#include <boost/url/url.hpp>

#include <chrono>
#include <string>
#include <string_view>

#include "platform/async/task.hpp"
#include "platform/http_client.hpp"

namespace ombrine {

inline constexpr std::chrono::seconds kStormRequestTimeout{60};

Task<std::string> getStormFile(HttpClient& http, boost::urls::url url, std::string accept);

// `base` with `path` appended to its own path ("/jtwc" + "/jtwc/rss/jtwc.rss" on the simulator).
boost::urls::url underBase(const boost::urls::url& base, std::string_view path);

// True when the calling coroutine's task has been cancelled, without raising.
Task<bool> stormTaskCancelled();

// Raises CancellationError when the calling coroutine's task has been cancelled.
Task<void> throwIfStormTaskCancelled();

}  // namespace ombrine
