#include "platform/linux/shared_library.hpp"

#include <dlfcn.h>

#include <stdexcept>

namespace ombrine {

void* openSharedLibrary(const char* soname) {
  // Lazy binding, as for the program itself: libcurl's dependency tree alone has thousands of
  // function symbols, and binding them all at load costs about 1 ms on the fetch's critical path.
  // Every symbol we call is looked up with dlsym below, so a missing one still fails at load.
  void* handle = ::dlopen(soname, RTLD_LAZY | RTLD_LOCAL);
  if (handle == nullptr) {
    const char* reason = ::dlerror();
    throw std::runtime_error(std::string("cannot load ") + soname + ": " + (reason ? reason : "unknown error"));
  }
  return handle;
}

void* findSymbol(void* handle, const char* soname, const char* name) {
  void* symbol = ::dlsym(handle, name);
  if (symbol == nullptr) throw std::runtime_error(std::string(soname) + " lacks " + name);
  return symbol;
}

}  // namespace ombrine
