#include "packaging/build_info.hpp"

#include <fmt/format.h>

#include <system_error>

#include "core/fetch/provider_dispatch.hpp"
#include "platform/paths.hpp"

namespace ombrine::packaging {

std::string_view version() noexcept { return OMBRINE_VERSION; }

std::string versionText() {
  std::string providers;
  for (const ProviderPath path : {ProviderPath::foreca, ProviderPath::openWeather, ProviderPath::systemWeather,
                                  ProviderPath::bureauOfMeteorologyMerged}) {
    providers += fmt::format("{}{}", providers.empty() ? "" : ", ", providerPathName(path));
  }
  const ResourceLocation resources = locateResources();
  std::error_code ec;
  const auto page = resources.directory / "web";
  const bool pageInstalled = std::filesystem::is_directory(page, ec) && !std::filesystem::is_empty(page, ec);
  return fmt::format(
      "ombrine {}\n"
      "providers: {}\n"
      "D-Bus: desktop notifications over the session bus (sd-bus)\n"
      "web page: {}\n"
      "resources: {} ({})",
      version(), providers, pageInstalled ? page.string() : "not installed", resources.directory.string(),
      resources.origin);
}

}  // namespace ombrine::packaging
