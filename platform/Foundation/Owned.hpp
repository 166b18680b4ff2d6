#pragma once

#include <memory>

namespace tavlo::foundation {

/// Hands an object of a C library back to it.
template <auto release>
struct Release {
  template <class T>
  void operator()(T* object) const {
    release(object);
  }
};

/// An object of a C library that is handed back with `release`, such as Owned<X509, X509_free>.
template <class T, auto release>
using Owned = std::unique_ptr<T, Release<release>>;

}  // namespace tavlo::foundation
