// What an app does to have a passport verified; here it comes from files that were read from the chip.

#include <Foundation/Print.hpp>
#include <TavloCA/TavloCA.hpp>
#include <TavloReader/DocumentSource.hpp>

#include <exception>
#include <filesystem>
#include <future>
#include <iostream>
#include <memory>
#include <stdexcept>

int main(int argc, char** argv) try {
  using namespace tavlo;
  if (argc != 3) throw std::runtime_error("use: example-verify FOLDER SELFIE");
  foundation::setPrintHandler([](std::string_view) {});  // The library's console lines hold personal data.

  const auto document = reader::readDocument(std::filesystem::path(argv[1]));
  const auto selfie = uikit::UIImage::decode(foundation::contentsOf(argv[2]));
  // The record that an app keeps and shows; its two pictures become files of the app.
  const auto passport = make<Passport>(document.model);

  // The completion runs on the network layer's thread: it only hands the outcome over to this one.
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
