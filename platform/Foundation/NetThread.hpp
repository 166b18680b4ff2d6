#pragma once

#include <pthread.h>
#include <signal.h>

#include <thread>
#include <utility>

namespace tavlo::foundation {

/// Starts a thread called `name` that takes no signals: those are the host app's business.
/// An exception from `body` ends the process. Throws std::system_error when there can be no more threads.
template <class Body>
std::thread startNetThread(const char* name, Body body) {
  // A thread inherits the mask of its maker: so no signal comes in before it has one of its own.
  sigset_t all;
  sigset_t previous;
  sigfillset(&all);
  pthread_sigmask(SIG_SETMASK, &all, &previous);
  const auto restore = [&] { pthread_sigmask(SIG_SETMASK, &previous, nullptr); };
  try {
    std::thread thread([name, body = std::move(body)] {
      pthread_setname_np(pthread_self(), name);
      body();
    });
    restore();
    return thread;
  } catch (...) {
    restore();
    throw;
  }
}

}  // namespace tavlo::foundation
