#include <Foundation/SharedService.hpp>

#include <pthread.h>

namespace tavlo::foundation {

namespace {

constinit std::mutex mutex;

[[maybe_unused]] const int registered =
    pthread_atfork([] { mutex.lock(); }, [] { mutex.unlock(); }, [] { mutex.unlock(); });

}  // namespace

std::mutex& servicesMutex() {
  return mutex;
}

}  // namespace tavlo::foundation
