#include <Foundation/ProcessSession.hpp>

#include <stdexcept>

namespace tavlo::foundation {
namespace {

/// Stands where the host app has yet to install its session.
class NoSession final : public URLSession {
 public:
  void start(URLRequest /*request*/, CompletionHandler /*handler*/) override {
    throw std::logic_error("this build has no session of its own, and none is installed");
  }
};

}  // namespace

std::shared_ptr<URLSession> makeProcessSession() {
  return std::make_shared<NoSession>();
}

}  // namespace tavlo::foundation
