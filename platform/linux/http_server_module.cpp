#include "platform/linux/http_server_module.hpp"

#include <stdexcept>
#include <string>
#include <system_error>

#include "platform/linux/shared_library.hpp"

namespace ombrine {

std::filesystem::path httpServerModulePath() {
  std::error_code ec;
  // The program's own file, symbolic links resolved: bin/ombrine -> bin/../lib/ombrine.
  const auto program = std::filesystem::read_symlink("/proc/self/exe", ec);
  if (!ec) {
    const auto beside =
        (program.parent_path().parent_path() / "lib" / "ombrine" / kHttpServerModule).lexically_normal();
    if (std::filesystem::is_regular_file(beside, ec)) return beside;
  }
  const std::filesystem::path installed = std::filesystem::path(OMBRINE_INSTALLED_MODULE_DIR) / kHttpServerModule;
  if (std::filesystem::is_regular_file(installed, ec)) return installed;
  return std::filesystem::path(OMBRINE_BUILD_MODULE_DIR) / kHttpServerModule;
}

std::unique_ptr<HttpServer> openHttpServer(const HttpServerOptions& options, HttpServer::Handler handler,
                                           HttpServer::Written written) {
  // A failed open raises out of the initialiser, so the next call tries again and raises again.
  static const OpenHttpServer open = [] {
    const std::string path = httpServerModulePath().string();
    return reinterpret_cast<OpenHttpServer>(
        findSymbol(openSharedLibrary(path.c_str()), path.c_str(), kHttpServerEntry));
  }();
  return std::unique_ptr<HttpServer>(open(options, std::move(handler), std::move(written)));
}

}  // namespace ombrine
