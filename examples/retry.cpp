// Builds a request once and posts the same bytes again when the network fails: a key or a picture made anew would make
// the service see another request.

#include <Foundation/Print.hpp>
#include <Foundation/URLError.hpp>
#include <TavloCA/TavloCA.hpp>
#include <TavloReader/DocumentSource.hpp>
#include <TavloStore/Util.hpp>

#include <chrono>
#include <exception>
#include <filesystem>
#include <future>
#include <iostream>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
#include <thread>
#include <utility>

namespace {

using namespace tavlo;

foundation::Data build(const reader::NFCPassportModel& model, const uikit::UIImage& selfie) {
  // The pair that was made for this document before, if there is one; the key store never replaces it.
  const auto keys = store::Util::createKeypair(model.documentNumber());
  if (!keys) throw std::runtime_error("the document has no number to keep a key under");
  DataGroups groups;
  for (const auto& [id, group] : model.dataGroupsRead()) groups.push_back(group);
  auto body = TavloCA::verificationObject(groups, selfie, *keys->publicKey);
  if (!body) throw std::runtime_error("the request cannot be built");
  return *std::move(body);
}

/// Posts and waits for the outcome; an app with a loop would not wait but hop onto it.
foundation::Data postAndWait(const foundation::Data& body, const std::string& url) {
  const auto outcome = std::make_shared<std::promise<foundation::Data>>();
  TavloCA::post(body, url, [outcome](auto answer, const std::exception_ptr& error) {
    if (answer) {
      outcome->set_value(*std::move(answer));
    } else {
      outcome->set_exception(error ? error : std::make_exception_ptr(std::runtime_error("no answer and no error")));
    }
  });
  return outcome->get_future().get();
}

/// Whether a later attempt may fare better. What is wrong with the address or with the server's certificate stays so.
bool mayPass(foundation::URLError::Code code) {
  using enum foundation::URLError::Code;
  return code == notConnectedToInternet || code == cannotFindHost || code == cannotConnectToHost ||
         code == networkConnectionLost || code == timedOut;
}

foundation::Data postUntilAnswered(const foundation::Data& body, const std::string& url) {
  constexpr int attempts = 4;
  std::chrono::milliseconds pause{250};
  for (int attempt = 1;; ++attempt) {
    try {
      return postAndWait(body, url);
    } catch (const foundation::URLError& error) {
      if (attempt == attempts || !mayPass(error.code())) throw;
      std::cerr << "Attempt " << attempt << ": " << error.localizedDescription() << " Trying again.\n";
    }
    std::this_thread::sleep_for(pause);
    pause *= 2;
  }
}

}  // namespace

int main(int argc, char** argv) try {
  if (argc != 4) throw std::runtime_error("use: example-retry FOLDER SELFIE URL");
  foundation::setPrintHandler([](std::string_view) {});  // The library's console lines hold personal data.
  const auto document = reader::readDocument(std::filesystem::path(argv[1]));
  const auto selfie = uikit::UIImage::decode(foundation::contentsOf(argv[2]));

  const auto body = build(document.model, selfie);
  std::cout << foundation::textOf(postUntilAnswered(body, argv[3])) << "\n";
  return 0;
} catch (const std::exception& error) {
  std::cerr << error.what() << "\n";
  return 1;
}
