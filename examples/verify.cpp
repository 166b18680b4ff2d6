// Verifies a passport from an app with a loop of its own, such as a window system's: the completion hops onto it.

#include <Foundation/Print.hpp>
#include <Foundation/URLError.hpp>
#include <TavloCA/TavloCA.hpp>
#include <TavloReader/DocumentSource.hpp>

#include <condition_variable>
#include <deque>
#include <exception>
#include <filesystem>
#include <functional>
#include <iostream>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <string_view>
#include <utility>

namespace {

using namespace tavlo;

/// Stands for the loop that an app has: runs on one thread what any thread hands over.
class MainLoop {
 public:
  void post(std::function<void()> work) {
    const std::lock_guard lock(mutex_);
    work_.push_back(std::move(work));
    wake_.notify_one();
  }
  /// Runs until `stop` is called on this thread.
  void run() {
    while (isRunning_) {
      std::unique_lock lock(mutex_);
      wake_.wait(lock, [this] { return !work_.empty(); });
      const auto work = std::move(work_.front());
      work_.pop_front();
      lock.unlock();
      work();
    }
  }
  void stop() { isRunning_ = false; }

 private:
  std::mutex mutex_;
  std::condition_variable wake_;
  std::deque<std::function<void()>> work_;
  bool isRunning_ = true;
};

/// Shows the outcome, which is an answer, an error, or in a network layer of one's own neither of them.
bool show(const std::optional<foundation::Data>& answer, const std::exception_ptr& error) {
  if (answer) {
    std::cout << foundation::textOf(*answer) << "\n";
  } else {
    std::cerr << (error ? foundation::localizedDescription(error) : "no answer and no error") << "\n";
  }
  return answer.has_value();
}

}  // namespace

int main(int argc, char** argv) try {
  if (argc != 3) throw std::runtime_error("use: example-verify FOLDER SELFIE");
  foundation::setPrintHandler([](std::string_view) {});  // The library's console lines hold personal data.

  const auto document = reader::readDocument(std::filesystem::path(argv[1]));
  const auto selfie = uikit::UIImage::decode(foundation::contentsOf(argv[2]));
  // The record that an app keeps and shows; its two pictures become files of the app.
  const auto passport = make<Passport>(document.model);

  MainLoop loop;
  bool answered = false;
  TavloCA::verify(document.model, *passport, selfie,
                  [&](std::optional<foundation::Data> answer, const std::exception_ptr& error) {
                    // Mostly on the network layer's thread, where nothing of the app may be touched.
                    loop.post([&, answer = std::move(answer), error] {
                      answered = show(answer, error);
                      loop.stop();
                    });
                  });
  loop.run();
  return answered ? 0 : 1;
} catch (const std::exception& error) {
  std::cerr << error.what() << "\n";
  return 1;
}
