#pragma once
// OpenSSL's libcrypto, loaded when the program first signs, verifies or makes a key rather than
// at program start.
//
// Linked, libcrypto costs every run of the program its loading and several thousand symbol
// relocations, also the many runs that never sign anything (only the system weather service's
// token, the tile proxy's credential and the simulator's token check need it). So the program
// does not link it: crypto_library.cpp defines each libcrypto function the program calls (with
// the declarations of OpenSSL's headers, so callers write plain OpenSSL) and forwards it to
// "libcrypto.so.3", opened on the first call.
//
// Thread-safe. Every forwarded function raises std::runtime_error when the library cannot be
// opened or lacks the function. A function not forwarded there fails to link: add it there.

namespace ombrine {

// The library the definitions forward to.
inline constexpr char kCryptoLibrary[] = "libcrypto.so.3";

}  // namespace ombrine
