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
  return std::thread([name, body = std::move(body)] {
    sigset_t all;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, nullptr);
    pthread_setname_np(pthread_self(), name);
    body();
  });
}

}  // namespace tavlo::foundation
