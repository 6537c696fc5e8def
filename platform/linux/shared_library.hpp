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

}  // namespace ombrine
