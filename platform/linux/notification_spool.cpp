#include "platform/linux/notification_spool.hpp"

#include <boost/json.hpp>

#include <cmath>

#include <fmt/format.h>

namespace ombrine {

namespace json = boost::json;

namespace {

const json::value& member(const json::object& object, std::string_view key) {
  const json::value* value = object.if_contains(key);
  if (!value) throw SpoolDecodingError(fmt::format("{}: missing", key));
  return *value;
}

std::string stringMember(const json::object& object, std::string_view key) {
  const json::value& value = member(object, key);
  if (!value.is_string()) throw SpoolDecodingError(fmt::format("{}: not a string", key));
  return std::string(value.get_string());
}

}  // namespace

std::string encodeSpoolEntry(const SpoolEntry& spooled) {
  const NotificationEntry& entry = spooled.entry;
  json::object object;
  object["body"] = entry.content.body;
  object["defaultSound"] = entry.content.defaultSound;
  if (!entry.deliveredTo.empty()) object["deliveredTo"] = entry.deliveredTo;
  if (spooled.desktopId) object["desktopId"] = *spooled.desktopId;
  object["identifier"] = entry.identifier;
  if (!entry.content.subtitle.empty()) object["subtitle"] = entry.content.subtitle;
  object["title"] = entry.content.title;
  const auto milliseconds =
      std::chrono::duration_cast<std::chrono::milliseconds>(entry.triggerDate.time_since_epoch()).count();
  object["triggerDate"] = static_cast<double>(milliseconds) / 1000.0;
  return json::serialize(object) + "\n";
}

SpoolEntry decodeSpoolEntry(std::string_view text) {
  boost::system::error_code error;
  json::value document = json::parse(text, error);
  if (error) throw SpoolDecodingError("invalid JSON: " + error.message());
  const json::object* object = document.if_object();
  if (!object) throw SpoolDecodingError("not a JSON object");
  SpoolEntry spooled;
  NotificationEntry& entry = spooled.entry;
  entry.identifier = stringMember(*object, "identifier");
  if (entry.identifier.empty()) throw SpoolDecodingError("identifier: empty");
  entry.content.title = stringMember(*object, "title");
  entry.content.body = stringMember(*object, "body");
  if (object->contains("subtitle")) entry.content.subtitle = stringMember(*object, "subtitle");
  const json::value& sound = member(*object, "defaultSound");
  if (!sound.is_bool()) throw SpoolDecodingError("defaultSound: not a boolean");
  entry.content.defaultSound = sound.get_bool();
  const json::value& trigger = member(*object, "triggerDate");
  if (!trigger.is_number()) throw SpoolDecodingError("triggerDate: not a number");
  const double seconds = trigger.to_number<double>();
  // A time_point counts nanoseconds in 64 bits: about 292 years either side of 1970.
  if (!std::isfinite(seconds) || std::fabs(seconds) > 8e9) throw SpoolDecodingError("triggerDate: out of range");
  entry.triggerDate = std::chrono::system_clock::time_point(std::chrono::milliseconds(std::llround(seconds * 1000.0)));
  if (const json::value* to = object->if_contains("deliveredTo")) {
    if (!to->is_string()) throw SpoolDecodingError("deliveredTo: not a string");
    entry.deliveredTo = std::string(to->get_string());
  }
  if (const json::value* id = object->if_contains("desktopId")) {
    const auto* number = id->if_uint64();
    const auto* signedNumber = id->if_int64();
    std::uint64_t value = 0;
    if (number) {
      value = *number;
    } else if (signedNumber && *signedNumber >= 0) {
      value = static_cast<std::uint64_t>(*signedNumber);
    } else {
      throw SpoolDecodingError("desktopId: not an unsigned integer");
    }
    if (value > UINT32_MAX) throw SpoolDecodingError("desktopId: out of range");
    spooled.desktopId = static_cast<std::uint32_t>(value);
  }
  return spooled;
}

std::string spoolFileName(std::string_view identifier) {
  std::string name;
  name.reserve(identifier.size() + 5);
  for (std::size_t i = 0; i < identifier.size(); ++i) {
    const auto c = static_cast<unsigned char>(identifier[i]);
    const bool plain = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_' ||
                       c == '-' || c == ':' || (c == '.' && i > 0);
    if (plain) {
      name.push_back(static_cast<char>(c));
    } else {
      name += fmt::format("%{:02X}", c);
    }
  }
  return name + ".json";
}

}  // namespace ombrine
