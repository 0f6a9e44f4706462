#pragma once

#include <dlfcn.h>

#include <stdexcept>
#include <string>
#include <utility>

namespace CorvaneTest {

// A shared object loaded with dlopen, closed with dlclose on destruction.
// Errors: std::runtime_error with the loader's text.
class SharedObject {
 public:
  explicit SharedObject(const char* file) : m_handle(dlopen(file, RTLD_NOW | RTLD_LOCAL)) {
    if (m_handle == nullptr) throw std::runtime_error(dlerror());
  }
  ~SharedObject() {
    if (m_handle != nullptr) dlclose(m_handle);
  }
  SharedObject(SharedObject&& other) noexcept : m_handle(std::exchange(other.m_handle, nullptr)) {}
  SharedObject& operator=(SharedObject&&) = delete;

  // Closes it now; false when the loader refused.
  [[nodiscard]] bool Close() { return dlclose(std::exchange(m_handle, nullptr)) == 0; }

  template <class Function>
  Function* Get(const char* symbol) const {
    void* const address = dlsym(m_handle, symbol);
    if (address == nullptr) throw std::runtime_error(dlerror());
    return reinterpret_cast<Function*>(address);
  }

  // Whether the loader still has it, from whomever.
  static bool IsLoaded(const char* file) {
    void* const handle = dlopen(file, RTLD_NOW | RTLD_NOLOAD);
    if (handle == nullptr) return false;
    dlclose(handle);
    return true;
  }

 private:
  void* m_handle;
};

}  // namespace CorvaneTest
