// An object that is made but never destroyed.
#pragma once

namespace zeva {

// For what threads may still use while the process ends. As a static it lies in the library's own
// image, so that nothing stays behind when the library is unloaded, as it would with `new`.
template <typename T>
union Immortal {
  Immortal() : value() {}
  ~Immortal() {}
  T value;
};

}  // namespace zeva
