#include <Foundation/NSObject.hpp>

namespace tavlo::foundation {

std::size_t NSObject::hash() const {
  return std::hash<const void*>{}(this);
}

}  // namespace tavlo::foundation
