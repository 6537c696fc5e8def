#include "platform/linux/sd_bus_library.hpp"

#include "platform/linux/shared_library.hpp"

namespace ombrine {

namespace {

// The soname of libsystemd's ABI 0, the one the headers describe.
constexpr char kSoname[] = "libsystemd.so.0";

SdBusLibrary load() {
  void* handle = openSharedLibrary(kSoname);
  SdBusLibrary library{};
  bindSymbol(handle, kSoname, library.bus_new, "sd_bus_new");
  bindSymbol(handle, kSoname, library.set_address, "sd_bus_set_address");
  bindSymbol(handle, kSoname, library.set_bus_client, "sd_bus_set_bus_client");
  bindSymbol(handle, kSoname, library.start, "sd_bus_start");
  bindSymbol(handle, kSoname, library.flush_close_unref, "sd_bus_flush_close_unref");
  bindSymbol(handle, kSoname, library.call, "sd_bus_call");
  bindSymbol(handle, kSoname, library.error_free, "sd_bus_error_free");
  bindSymbol(handle, kSoname, library.message_new_method_call, "sd_bus_message_new_method_call");
  bindSymbol(handle, kSoname, library.message_unref, "sd_bus_message_unref");
  bindSymbol(handle, kSoname, library.message_append, "sd_bus_message_append");
  bindSymbol(handle, kSoname, library.message_open_container, "sd_bus_message_open_container");
  bindSymbol(handle, kSoname, library.message_close_container, "sd_bus_message_close_container");
  bindSymbol(handle, kSoname, library.message_read, "sd_bus_message_read");
  return library;
}

}  // namespace

const SdBusLibrary& sdBusLibrary() {
  // A failed load raises out of the initialiser, so the next call tries again and raises again.
  static const SdBusLibrary library = load();
  return library;
}

}  // namespace ombrine
