#include "platform/linux/shared_library.hpp"

#include <dlfcn.h>

#include <stdexcept>

namespace ombrine {

void* openSharedLibrary(const char* soname) {
  void* handle = ::dlopen(soname, RTLD_NOW | RTLD_LOCAL);
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
