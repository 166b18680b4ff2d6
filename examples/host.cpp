// Brings an app's own network layer, image store and key store, as on a phone: each is put in once, at the start.

#include <Foundation/Print.hpp>
#include <Foundation/URLSession.hpp>
#include <TavloCA/TavloCA.hpp>
#include <TavloCommon/TavloCommon.hpp>
#include <TavloReader/DocumentSource.hpp>
#include <TavloStore/Util.hpp>

#include <condition_variable>
#include <deque>
#include <exception>
#include <filesystem>
#include <functional>
#include <future>
#include <iostream>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <thread>
#include <utility>

namespace {

using namespace tavlo;

/// Stands for the phone's network stack: answers each request itself. Each handler is called once, one at a time, on a
/// thread of the session's own, also for requests that are started within a handler.
class OwnSession final : public foundation::URLSession {
 public:
  ~OwnSession() override {
    {
      const std::lock_guard lock(mutex_);
      isClosed_ = true;
    }
    wake_.notify_one();
    thread_.join();
  }
  void start(foundation::URLRequest request, CompletionHandler handler) override {
    {
      const std::lock_guard lock(mutex_);
      exchanges_.emplace_back(std::move(request), std::move(handler));
    }
    wake_.notify_one();
  }

 private:
  void serve() {
    for (std::unique_lock lock(mutex_);; lock.lock()) {
      wake_.wait(lock, [this] { return isClosed_ || !exchanges_.empty(); });
      if (exchanges_.empty()) return;
      const auto [request, handler] = std::move(exchanges_.front());
      exchanges_.pop_front();
      lock.unlock();
      const std::string& url = request.url.absoluteString();
      std::string answer = request.httpMethod;
      answer.append(" ").append(url).append(", ").append(std::to_string(request.httpBody.size())).append(" bytes");
      handler(foundation::dataOf(answer), foundation::URLResponse{200, url}, nullptr);
    }
  }

  std::mutex mutex_;
  std::condition_variable wake_;
  std::deque<std::pair<foundation::URLRequest, CompletionHandler>> exchanges_;
  bool isClosed_ = false;
  std::thread thread_{[this] { serve(); }};
};

/// Stands for the app's encrypted store of pictures.
class OwnImages final : public common::ImageStore {
 public:
  std::optional<std::string> persist(const uikit::UIImage& image) override {
    const std::lock_guard lock(mutex_);
    std::string name = "picture-" + std::to_string(images_.size() + 1);
    images_.emplace(name, image);
    return name;
  }
  std::optional<uikit::UIImage> load(std::string_view name) override {
    const std::lock_guard lock(mutex_);
    const auto found = images_.find(name);
    return found == images_.end() ? std::nullopt : std::optional(found->second);
  }

 private:
  std::mutex mutex_;
  std::map<std::string, uikit::UIImage, std::less<>> images_;
};

/// Stands for the phone's key hardware: the private half never leaves it.
class OwnKeys final : public store::KeyStore {
 public:
  std::optional<security::SecKeyPair> createKeypair(std::string_view keyAlias, security::SecKeyType type,
                                                    bool ephemeral) override {
    if (keyAlias.empty()) return std::nullopt;  // documents without a number must not share a key
    if (ephemeral) return security::generateKeyPair(type);
    const std::lock_guard lock(mutex_);
    const auto found = pairs_.find(std::pair(std::string(keyAlias), type));
    if (found != pairs_.end()) return found->second;  // never replaced: a credential may rest on it
    return pairs_.emplace(std::pair(std::string(keyAlias), type), security::generateKeyPair(type)).first->second;
  }

 private:
  std::mutex mutex_;
  std::map<std::pair<std::string, security::SecKeyType>, security::SecKeyPair> pairs_;
};

}  // namespace

int main(int argc, char** argv) try {
  if (argc != 3) throw std::runtime_error("use: example-host FOLDER SELFIE");
  foundation::URLSession::install(std::make_shared<OwnSession>());
  common::ImageStore::install(std::make_shared<OwnImages>());
  store::KeyStore::install(std::make_shared<OwnKeys>());
  foundation::setPrintHandler([](std::string_view) {});

  const auto document = reader::readDocument(std::filesystem::path(argv[1]));
  const auto selfie = uikit::UIImage::decode(foundation::contentsOf(argv[2]));
  const auto passport = make<Passport>(document.model);
  std::cout << "portrait kept as " << passport->portraitFilename().value_or("nothing") << "\n";

  const auto outcome = std::make_shared<std::promise<foundation::Data>>();
  TavloCA::verify(document.model, *passport, selfie, [outcome](auto answer, const std::exception_ptr& error) {
    if (answer) {
      outcome->set_value(*std::move(answer));
    } else {
      outcome->set_exception(error ? error : std::make_exception_ptr(std::runtime_error("no answer and no error")));
    }
  });
  std::cout << foundation::textOf(outcome->get_future().get()) << "\n";
  return 0;
} catch (const std::exception& error) {
  std::cerr << error.what() << "\n";
  return 1;
}
