#include "platform/linux/curl_library.hpp"

#include <stdexcept>
#include <string>

#include "platform/linux/shared_library.hpp"

namespace ombrine {

namespace {

// The soname of libcurl's ABI 4, the one the headers describe.
constexpr char kSoname[] = "libcurl.so.4";

template <class Function>
void bind(void* handle, Function& function, const char* name) {
  bindSymbol(handle, kSoname, function, name);
}

CurlLibrary load() {
  // Never closed: libcurl's global state lives for the whole process.
  void* handle = openSharedLibrary(kSoname);
  CurlLibrary library{};
  bind(handle, library.global_init, "curl_global_init");
  bind(handle, library.easy_init, "curl_easy_init");
  bind(handle, library.easy_cleanup, "curl_easy_cleanup");
  bind(handle, library.easy_reset, "curl_easy_reset");
  bind(handle, library.easy_setopt, "curl_easy_setopt");
  bind(handle, library.easy_getinfo, "curl_easy_getinfo");
  bind(handle, library.easy_strerror, "curl_easy_strerror");
  bind(handle, library.multi_init, "curl_multi_init");
  bind(handle, library.multi_cleanup, "curl_multi_cleanup");
  bind(handle, library.multi_setopt, "curl_multi_setopt");
  bind(handle, library.multi_add_handle, "curl_multi_add_handle");
  bind(handle, library.multi_remove_handle, "curl_multi_remove_handle");
  bind(handle, library.multi_perform, "curl_multi_perform");
  bind(handle, library.multi_poll, "curl_multi_poll");
  bind(handle, library.multi_wakeup, "curl_multi_wakeup");
  bind(handle, library.multi_info_read, "curl_multi_info_read");
  bind(handle, library.multi_strerror, "curl_multi_strerror");
  bind(handle, library.slist_append, "curl_slist_append");
  bind(handle, library.slist_free_all, "curl_slist_free_all");
  // Once per process, and never cleaned up, since other clients (or threads) may still use it.
  const CURLcode initialised = library.global_init(CURL_GLOBAL_DEFAULT);
  if (initialised != CURLE_OK) {
    throw std::runtime_error(std::string("libcurl initialisation failed: ") + library.easy_strerror(initialised));
  }
  return library;
}

}  // namespace

const CurlLibrary& curlLibrary() {
  // A failed load raises out of the initialiser, so the next call tries again and raises again.
  static const CurlLibrary library = load();
  return library;
}

}  // namespace ombrine
