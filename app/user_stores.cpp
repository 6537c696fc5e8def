#include "app/user_stores.hpp"

#include <exception>

#include "core/date.hpp"
#include "core/time_zone.hpp"
#include "persistence/key_value_backup.hpp"
#include "platform/linux/system_clock.hpp"
#include "platform/log.hpp"

namespace ombrine::app {

UserStores::UserStores() {
  try {
    const SystemClock clock;
    backupKeyValueStoreIfNeeded(Date::fromSystem(clock.now()), TimeZone::current(), cloud, standardDefaults);
  } catch (const std::exception& error) {
    logf("Backup of the cloud key-value store failed: {}", error.what());
  }
}

UserStores::~UserStores() { cloud.synchronize(); }

}  // namespace ombrine::app
