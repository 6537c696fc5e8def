#pragma once
// The module that implements HttpServer (platform/http_server.hpp) over cpp-httplib.
//
// cpp-httplib is built with TLS and compression, so linking it would load libssl, libcrypto and
// the brotli libraries and run OpenSSL's initialisation at every start of the program, also the
// many runs that never serve. So the server lives in a shared module of its own,
// "ombrine-http-server.so", which the first `openHttpServer` opens (and never closes) from the
// first of: beside the program (../lib/ombrine/, so an installed tree works wherever it is
// moved), the install prefix's lib/ombrine/, the build tree's lib/ombrine/ (tests).
//
// The module exports one function, `kHttpServerEntry`, of type `OpenHttpServer`: it binds the
// server and returns it, or raises std::runtime_error.

#include <filesystem>

#include "platform/http_server.hpp"

namespace ombrine {

inline constexpr char kHttpServerModule[] = "ombrine-http-server.so";
inline constexpr char kHttpServerEntry[] = "ombrine_open_http_server";
using OpenHttpServer = HttpServer* (*)(const HttpServerOptions&, HttpServer::Handler, HttpServer::Written);

// Where the module is found (see above); the build tree's path when none holds it.
std::filesystem::path httpServerModulePath();

}  // namespace ombrine
