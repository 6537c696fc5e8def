#pragma once
// Opening a shared library on first use instead of linking it (see curl_library.hpp and
// sd_bus_library.hpp for why).
//
// `openSharedLibrary` opens `soname` with RTLD_NOW | RTLD_LOCAL and never closes it; `bindSymbol`
// looks a function up in it. Both raise std::runtime_error naming the library and, for a
// missing function, its name. Thread-safe as dlopen and dlsym are.

#include <string>

namespace ombrine {

void* openSharedLibrary(const char* soname);
void* findSymbol(void* handle, const char* soname, const char* name);

template <class Function>
void bindSymbol(void* handle, const char* soname, Function& function, const char* name) {
  function = reinterpret_cast<Function>(findSymbol(handle, soname, name));
}

// The function `name` of `soname`, opened if need be (dlopen keeps one handle per library).
template <class Function>
Function sharedFunction(const char* soname, const char* name) {
  return reinterpret_cast<Function>(findSymbol(openSharedLibrary(soname), soname, name));
}

}  // namespace ombrine

// The body of a C function the program defines in place of the library's own (cairo_library.hpp,
// crypto_library.hpp): looks the library's function up once (a thread-safe static) and calls it.
#define OMBRINE_FORWARD_TO(soname, name, ...)                                           \
  static const auto real = ::ombrine::sharedFunction<decltype(&::name)>(soname, #name); \
  return real(__VA_ARGS__)

namespace ombrine {}  // namespace ombrine
