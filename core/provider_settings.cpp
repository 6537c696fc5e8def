#include "core/provider_settings.hpp"

#include <boost/json/parse.hpp>
#include <boost/json/serialize.hpp>
#include <boost/json/value.hpp>

#include "core/errors.hpp"

namespace ombrine {

std::string encodeImmediateWeatherProviderFetchRequest(const ImmediateWeatherProviderFetchRequest& request) {
  boost::json::object object;
  object["id"] = request.id.text();
  object["provider"] = static_cast<std::int64_t>(request.provider);
  return boost::json::serialize(object);
}

ImmediateWeatherProviderFetchRequest decodeImmediateWeatherProviderFetchRequest(std::string_view json) {
  boost::system::error_code error;
  const boost::json::value document = boost::json::parse(json, error);
  if (error) throw DecodingError("immediate provider request: " + error.message());
  const auto* object = document.if_object();
  if (!object) throw DecodingError("immediate provider request: expected an object");
  const auto* id = object->if_contains("id");
  if (!id) throw DecodingError("id: missing key");
  if (!id->is_string()) throw DecodingError("id: expected a string");
  const auto parsed = Uuid::parse(id->get_string());
  if (!parsed) throw DecodingError("id: not a UUID");
  const auto* provider = object->if_contains("provider");
  if (!provider) throw DecodingError("provider: missing key");
  const auto* number = provider->if_int64();
  if (!number) throw DecodingError("provider: expected an integer");
  if (*number < 0 || *number > 3) throw DecodingError("provider: no data source numbered " + std::to_string(*number));
  return ImmediateWeatherProviderFetchRequest{*parsed, static_cast<WeatherDataSource>(*number)};
}

// Observers live in a shared registry so that a token can unregister after the settings object
// is gone without touching freed memory.
struct SessionProviderSettings::Registry {
  std::mutex mutex;
  std::uint64_t nextKey = 0;
  std::vector<std::pair<std::uint64_t, std::shared_ptr<Observer>>> observers;
};

SessionProviderSettings::SessionProviderSettings(WeatherDataSource dataSource)
    : dataSource_(dataSource), registry_(std::make_shared<Registry>()) {}

WeatherDataSource SessionProviderSettings::dataSource() const {
  std::lock_guard lock(mutex_);
  return dataSource_;
}

std::optional<ImmediateWeatherProviderFetchRequest> SessionProviderSettings::pendingImmediateWeatherProviderFetchRequest()
    const {
  std::lock_guard lock(mutex_);
  return pending_;
}

void SessionProviderSettings::completeImmediateFetch(const Uuid& id) {
  {
    std::lock_guard lock(mutex_);
    if (!pending_ || pending_->id != id) return;
    pending_.reset();
  }
  notify(ProviderSettingsChange::immediateRequest);
}

std::shared_ptr<void> SessionProviderSettings::observeProviderChanges(Observer observer) {
  std::uint64_t key = 0;
  {
    std::lock_guard lock(registry_->mutex);
    key = registry_->nextKey++;
    registry_->observers.emplace_back(key, std::make_shared<Observer>(std::move(observer)));
  }
  std::weak_ptr<Registry> weak = registry_;
  auto unregister = [weak, key](void*) {
    auto registry = weak.lock();
    if (!registry) return;
    std::lock_guard lock(registry->mutex);
    std::erase_if(registry->observers, [key](const auto& entry) { return entry.first == key; });
  };
  return std::shared_ptr<void>(static_cast<void*>(nullptr), unregister);
}

void SessionProviderSettings::setDataSource(WeatherDataSource source) {
  {
    std::lock_guard lock(mutex_);
    if (dataSource_ == source) return;
    dataSource_ = source;
  }
  notify(ProviderSettingsChange::dataSource);
}

ImmediateWeatherProviderFetchRequest SessionProviderSettings::requestImmediateFetch(WeatherDataSource provider) {
  ImmediateWeatherProviderFetchRequest request{Uuid::random(), provider};
  {
    std::lock_guard lock(mutex_);
    pending_ = request;
  }
  notify(ProviderSettingsChange::immediateRequest);
  return request;
}

void SessionProviderSettings::notify(ProviderSettingsChange change) {
  std::vector<std::shared_ptr<Observer>> observers;
  {
    std::lock_guard lock(registry_->mutex);
    for (const auto& entry : registry_->observers) observers.push_back(entry.second);
  }
  for (const auto& observer : observers) (*observer)(change);
}

}  // namespace ombrine
