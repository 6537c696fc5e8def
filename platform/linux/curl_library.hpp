#pragma once
// libcurl, loaded when the first transfer needs it rather than at program start.
//
// libcurl brings about forty shared libraries with it (TLS stacks, Kerberos, LDAP, IDN, ...)
// whose loading and relocation cost every run of the program a few milliseconds, also the many
// runs that never touch the network (a cached forecast, a place lookup, --version). So the
// program does not link it: the first caller of `curlLibrary()` opens "libcurl.so.4", looks up
// the functions below and runs curl_global_init.
//
// Thread-safe; the library stays loaded and initialised for the rest of the process. Raises
// std::runtime_error when libcurl cannot be opened, lacks one of the functions, or fails to
// initialise (every later call raises the same).

#include <curl/curl.h>

namespace ombrine {

struct CurlLibrary {
  decltype(&::curl_global_init) global_init;
  decltype(&::curl_easy_init) easy_init;
  decltype(&::curl_easy_cleanup) easy_cleanup;
  decltype(&::curl_easy_reset) easy_reset;
  decltype(&::curl_easy_setopt) easy_setopt;
  decltype(&::curl_easy_getinfo) easy_getinfo;
  decltype(&::curl_easy_strerror) easy_strerror;
  decltype(&::curl_multi_init) multi_init;
  decltype(&::curl_multi_cleanup) multi_cleanup;
  decltype(&::curl_multi_setopt) multi_setopt;
  decltype(&::curl_multi_add_handle) multi_add_handle;
  decltype(&::curl_multi_remove_handle) multi_remove_handle;
  decltype(&::curl_multi_perform) multi_perform;
  decltype(&::curl_multi_poll) multi_poll;
  decltype(&::curl_multi_wakeup) multi_wakeup;
  decltype(&::curl_multi_info_read) multi_info_read;
  decltype(&::curl_multi_strerror) multi_strerror;
  decltype(&::curl_slist_append) slist_append;
  decltype(&::curl_slist_free_all) slist_free_all;
};

const CurlLibrary& curlLibrary();

}  // namespace ombrine
