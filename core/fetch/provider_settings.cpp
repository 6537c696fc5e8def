#include "core/fetch/provider_settings.hpp"

#include <boost/json/parse.hpp>
#include <boost/json/serialize.hpp>
#include <boost/json/value.hpp>

#include "core/values/errors.hpp"

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

SessionProviderSettings::SessionProviderSettings(WeatherDataSource dataSource) : dataSource_(dataSource) {}

WeatherDataSource SessionProviderSettings::dataSource() const {
  MutexLock lock(mutex_);
  return dataSource_;
}

std::optional<ImmediateWeatherProviderFetchRequest>
SessionProviderSettings::pendingImmediateWeatherProviderFetchRequest() const {
  MutexLock lock(mutex_);
  return pending_;
}

void SessionProviderSettings::completeImmediateFetch(const Uuid& id) {
  {
    MutexLock lock(mutex_);
    if (!pending_ || pending_->id != id) return;
    pending_.reset();
  }
  observers_.notify(ProviderSettingsChange::immediateRequest);
}

Subscription SessionProviderSettings::observeProviderChanges(Observer observer) {
  return observers_.add(std::move(observer));
}

void SessionProviderSettings::setDataSource(WeatherDataSource source) {
  {
    MutexLock lock(mutex_);
    if (dataSource_ == source) return;
    dataSource_ = source;
  }
  observers_.notify(ProviderSettingsChange::dataSource);
}

ImmediateWeatherProviderFetchRequest SessionProviderSettings::requestImmediateFetch(WeatherDataSource provider) {
  ImmediateWeatherProviderFetchRequest request{Uuid::random(), provider};
  {
    MutexLock lock(mutex_);
    pending_ = request;
  }
  observers_.notify(ProviderSettingsChange::immediateRequest);
  return request;
}

}  // namespace ombrine
