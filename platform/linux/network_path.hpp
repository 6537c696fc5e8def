#pragma once
// Whether the network path is `satisfied`: the machine has a default route (IPv4 or IPv6), read
// from the kernel's routing tables in /proc. A machine with only loopback is unsatisfied.
//
// $OMBRINE_NETWORK_PATH_FILE, when set, names a file whose first word ("satisfied" or anything
// else) decides instead, so a user or a test can play a network going away and coming back.
//
// Reads files on every call; thread-safe; never raises (unreadable tables read as satisfied, so
// a sandbox without /proc never holds fetches back).

namespace ombrine {

bool networkPathSatisfied();

}  // namespace ombrine
