#pragma once
// sd-bus (libsystemd), loaded when the first desktop notification is sent rather than at
// program start.
//
// libsystemd brings libgcrypt, libgpg-error, liblzma, libzstd, liblz4 and libcap with it; their
// loading and relocation cost every run of the program, also the many that never notify. So the
// program does not link it: the first caller of `sdBusLibrary()` opens "libsystemd.so.0" and
// looks up the functions below.
//
// Thread-safe; the library stays loaded for the rest of the process. Raises std::runtime_error
// when libsystemd cannot be opened or lacks one of the functions (every later call raises the
// same).

#include <systemd/sd-bus.h>

namespace ombrine {

struct SdBusLibrary {
  decltype(&::sd_bus_new) bus_new;
  decltype(&::sd_bus_set_address) set_address;
  decltype(&::sd_bus_set_bus_client) set_bus_client;
  decltype(&::sd_bus_start) start;
  decltype(&::sd_bus_flush_close_unref) flush_close_unref;
  decltype(&::sd_bus_call) call;
  decltype(&::sd_bus_error_free) error_free;
  decltype(&::sd_bus_message_new_method_call) message_new_method_call;
  decltype(&::sd_bus_message_unref) message_unref;
  decltype(&::sd_bus_message_append) message_append;
  decltype(&::sd_bus_message_open_container) message_open_container;
  decltype(&::sd_bus_message_close_container) message_close_container;
  decltype(&::sd_bus_message_read) message_read;
};

const SdBusLibrary& sdBusLibrary();

}  // namespace ombrine
