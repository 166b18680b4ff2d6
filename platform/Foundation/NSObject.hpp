#pragma once

#include <cstddef>
#include <functional>
#include <string>

namespace tavlo::foundation {

/// Root of the reference objects: compared and hashed by identity, never copied.
class NSObject {
 public:
  virtual ~NSObject() = default;
  NSObject(const NSObject&) = delete;
  NSObject& operator=(const NSObject&) = delete;

  /// A text for people.
  [[nodiscard]] virtual std::string description() const = 0;

  /// Whether `other` is this same object, unless a subclass says otherwise.
  [[nodiscard]] virtual bool isEqual(const NSObject& other) const { return this == &other; }
  /// Agrees with isEqual.
  [[nodiscard]] virtual std::size_t hash() const;

  friend bool operator==(const NSObject& a, const NSObject& b) { return a.isEqual(b); }

 protected:
  NSObject() = default;
};

}  // namespace tavlo::foundation

template <>
struct std::hash<tavlo::foundation::NSObject> {
  std::size_t operator()(const tavlo::foundation::NSObject& object) const { return object.hash(); }
};
