#pragma once

#include <dlfcn.h>

#include <atomic>
#include <cstdlib>

namespace Ormek::Testing {

/// The definition of a function that this program's own one stands in for: the C or C++ library's,
/// or a sanitizer's, whose checks thus go on. Ready before any constructor has run.
template <class Function>
class NextDefinition {
  public:
    /// Its name as the linker knows it.
    explicit constexpr NextDefinition(const char* name) : _name(name) {}

    template <class... Arguments>
    auto operator()(Arguments... arguments) {
        return reinterpret_cast<Function*>(find())(arguments...);
    }

  private:
    void* find() {
        void* function = _function.load(std::memory_order_relaxed);
        if (!function) {
            function = dlsym(RTLD_NEXT, _name);
            if (!function) {
                std::abort();
            }
            _function.store(function, std::memory_order_relaxed);
        }
        return function;
    }

    const char* _name;
    std::atomic<void*> _function{nullptr};
};

}  // namespace Ormek::Testing
