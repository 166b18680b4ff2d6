#include "tavlo.h"

#include <Foundation/JSONDecoder.hpp>
#include <Foundation/JSONEncoder.hpp>
#include <Foundation/Print.hpp>
#include <Foundation/URLError.hpp>
#include <Foundation/URLSession.hpp>
#include <Foundation/UTF8.hpp>
#include <TavloCA/TavloCA.hpp>
#include <TavloCommon/FileImageStore.hpp>
#include <TavloReader/DocumentSource.hpp>
#include <TavloStore/FileKeyStore.hpp>
#include <UIKit/UIDevice.hpp>

#include <array>
#include <atomic>
#include <exception>
#include <filesystem>
#include <memory>
#include <new>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>

namespace foundation = tavlo::foundation;
namespace security = tavlo::security;
using foundation::Data;
using foundation::DataView;
using foundation::URLError;

// NOLINTBEGIN(readability-identifier-naming): the names of C

struct tavlo_error {
  tavlo_error_kind kind = TAVLO_ERROR_OTHER;
  int code = 0;
  std::string message;
};
struct tavlo_data {
  Data bytes;
};
struct tavlo_model {
  tavlo::reader::NFCPassportModel value;
};
struct tavlo_image {
  tavlo::uikit::UIImage value;
};
struct tavlo_document {
  std::shared_ptr<const tavlo::CredentialDocument> value;
};
struct tavlo_exchange {
  foundation::URLRequest request;
  foundation::URLSession::CompletionHandler handler;
};

// NOLINTEND(readability-identifier-naming)

namespace {

static_assert(TAVLO_MAXIMUM_LENGTH == foundation::maximumFileSize);
static_assert(TAVLO_NETWORK_CERTIFICATE_UNTRUSTED == static_cast<int>(URLError::Code::serverCertificateUntrusted));

class ArgumentError : public std::invalid_argument {
 public:
  using std::invalid_argument::invalid_argument;
};

// ---- Errors ----

/// Stands where there is no memory for an error. Never freed.
tavlo_error noMemory{TAVLO_ERROR_MEMORY, 0, "out of memory"};

template <class Error>
tavlo_error describe(tavlo_error_kind kind, const Error& error, int code = 0) {
  return {kind, code, foundation::makeValidUTF8(error.what())};
}

tavlo_error describe(const std::exception_ptr& error) {
  if (!error) return {TAVLO_ERROR_OTHER, 0, "no answer and no error"};
  try {
    std::rethrow_exception(error);
  } catch (const ArgumentError& e) {
    return describe(TAVLO_ERROR_ARGUMENT, e);
  } catch (const tavlo::CAError& e) {
    return describe(TAVLO_ERROR_REQUEST, e);
  } catch (const URLError& e) {
    return describe(TAVLO_ERROR_NETWORK, e, static_cast<int>(e.code()));
  } catch (const tavlo::reader::ReaderError& e) {
    return describe(TAVLO_ERROR_DOCUMENT, e);
  } catch (const tavlo::uikit::ImageError& e) {
    return describe(TAVLO_ERROR_IMAGE, e);
  } catch (const security::SecurityError& e) {
    return describe(TAVLO_ERROR_KEY, e);
  } catch (const foundation::DecodingError& e) {
    return describe(TAVLO_ERROR_JSON, e);
  } catch (const foundation::EncodingError& e) {
    return describe(TAVLO_ERROR_JSON, e);
  } catch (const std::system_error& e) {
    return describe(TAVLO_ERROR_SYSTEM, e, e.code().value());
  } catch (const std::bad_alloc&) {
    return {TAVLO_ERROR_MEMORY, 0, "out of memory"};
  } catch (...) {
    return {TAVLO_ERROR_OTHER, 0, foundation::makeValidUTF8(foundation::localizedDescription(error))};
  }
}

tavlo_error* makeError(const std::exception_ptr& error) noexcept {
  try {
    return new tavlo_error(describe(error));
  } catch (...) {
    return &noMemory;
  }
}

/// What `body` gives; nothing and the error when it throws.
template <class Body>
auto guarded(tavlo_error** error, const Body& body) noexcept -> decltype(body()) {
  if (error != nullptr) *error = nullptr;
  try {
    return body();
  } catch (...) {
    if (error != nullptr) *error = makeError(std::current_exception());
    return {};
  }
}

// ---- Arguments ----

template <class T>
T& given(T* pointer, const char* name) {
  if (pointer == nullptr) throw ArgumentError(std::string(name) + " is NULL");
  return *pointer;
}

const char* givenText(const char* text, const char* name) {
  return &given(text, name);
}

DataView givenBytes(const uint8_t* bytes, size_t length, const char* name) {
  if (length > TAVLO_MAXIMUM_LENGTH) throw ArgumentError(std::string(name) + " are more than 256 MiB");
  if (length != 0) given(bytes, name);
  return {bytes, length};
}

Data copyOf(DataView bytes) {
  return {bytes.begin(), bytes.end()};
}

const tavlo::Passport& passportOf(const tavlo_document* document) {
  const auto* passport = dynamic_cast<const tavlo::Passport*>(given(document, "passport").value.get());
  if (passport == nullptr) throw ArgumentError("the document is no passport");
  return *passport;
}

template <class Document, class... Arguments>
tavlo_document* makeDocument(const Arguments&... arguments) {
  return new tavlo_document{tavlo::make<Document>(arguments...)};
}

template <class Document>
tavlo_document* readDocument(const uint8_t* json, size_t length) {
  const auto bytes = givenBytes(json, length, "json");
  return new tavlo_document{foundation::JSONDecoder().decode<std::shared_ptr<Document>>(bytes)};
}

/// A point of P-256 begins with 04, an RSAPublicKey in DER with 30.
std::shared_ptr<const security::SecKey> publicKeyOf(DataView bytes) {
  const bool isPoint = !bytes.empty() && bytes.front() == 0x04;
  return publicKeyFromData(bytes, isPoint ? security::SecKeyType::ellipticCurve : security::SecKeyType::rsa);
}

// ---- Requests ----

/// Calls a completion exactly once: with the first outcome, or when nobody can bring one any more.
class Outcome {
 public:
  Outcome(tavlo_completion completion, void* context) : completion_(completion), context_(context) {}
  Outcome(const Outcome&) = delete;
  Outcome& operator=(const Outcome&) = delete;
  ~Outcome() { fail(nullptr); }

  void answer(DataView bytes) noexcept {
    static constexpr uint8_t nothing = 0;
    if (!isDone_.exchange(true)) {
      completion_(context_, bytes.empty() ? &nothing : bytes.data(), bytes.size(), nullptr);
    }
  }
  void fail(const std::exception_ptr& error) noexcept {
    if (isDone_.exchange(true)) return;
    tavlo_error* const made = makeError(error);
    completion_(context_, nullptr, 0, made);
    tavlo_error_free(made);
  }

 private:
  const tavlo_completion completion_;
  void* const context_;
  std::atomic<bool> isDone_ = false;
};

/// Runs `send` with a completion of the library's form for the caller's.
template <class Send>
void request(tavlo_completion completion, void* context, const Send& send) noexcept {
  if (completion == nullptr) return;
  std::shared_ptr<Outcome> outcome;
  try {
    outcome = std::make_shared<Outcome>(completion, context);
    send([outcome](std::optional<Data> answer, const std::exception_ptr& error) {
      if (answer) {
        outcome->answer(*answer);
        foundation::wipe(*answer);  // nobody else can
      } else {
        outcome->fail(error);
      }
    });
  } catch (...) {
    if (outcome) {
      outcome->fail(std::current_exception());
    } else {
      completion(context, nullptr, 0, &noMemory);
    }
  }
}

// ---- What a host brings ----

class HostSession final : public foundation::URLSession {
 public:
  HostSession(tavlo_session session, void* context) : session_(session), context_(context) {}
  void start(foundation::URLRequest request, CompletionHandler handler) override {
    auto exchange = std::make_unique<tavlo_exchange>(tavlo_exchange{std::move(request), std::move(handler)});
    session_(context_, exchange.release());
  }

 private:
  const tavlo_session session_;
  void* const context_;
};

class HostKeys final : public tavlo::store::KeyStore {
 public:
  HostKeys(tavlo_key_source source, void* context) : source_(source), context_(context) {}
  std::optional<security::SecKeyPair> createKeypair(std::string_view keyAlias, security::SecKeyType type,
                                                    bool ephemeral) override {
    if (keyAlias.empty()) return std::nullopt;
    if (ephemeral) return security::generateKeyPair(type);
    if (keyAlias.find('\0') != keyAlias.npos) throw security::SecurityError("the document number holds a NUL byte");
    std::array<uint8_t, TAVLO_MAXIMUM_KEY_LENGTH> key{};
    const size_t length = source_(context_, std::string(keyAlias).c_str(), key.data());
    if (length == 0) return std::nullopt;
    if (length > key.size()) throw security::SecurityError("the key source says that it wrote too long a key");
    return security::SecKeyPair{nullptr, publicKeyFromData(DataView(key.data(), length), type)};
  }

 private:
  const tavlo_key_source source_;
  void* const context_;
};

class HostDevice final : public tavlo::uikit::UIDevice {
 public:
  HostDevice(const char* version, const char* model) : version_(foundation::makeValidUTF8(version)) {
    if (model != nullptr) model_ = foundation::makeValidUTF8(model);
  }
  [[nodiscard]] std::string systemVersion() const override { return version_; }
  [[nodiscard]] std::optional<std::string> model() const override { return model_; }

 private:
  std::string version_;
  std::optional<std::string> model_;
};

void end(tavlo_exchange* exchange, std::optional<Data> body, int status, const std::exception_ptr& error) noexcept {
  const std::unique_ptr<tavlo_exchange> ended(exchange);
  try {
    std::optional<foundation::URLResponse> response;
    if (body) response = foundation::URLResponse{status, ended->request.url.absoluteString()};
    ended->handler(std::move(body), std::move(response), error);
  } catch (...) {  // no memory: the outcome is told when the handler goes away
  }
  foundation::wipe(ended->request.httpBody);
}

tavlo_data* publicKeyUnder(const std::string& documentNumber) {
  const auto pair = tavlo::store::Util::createKeypair(documentNumber);
  if (!pair || !pair->publicKey) throw tavlo::CAError("Could not create keypair");
  return new tavlo_data{pair->publicKey->data()};
}

}  // namespace

// ---- The interface --------------------------------------------------------------------------------------------------

// NOLINTBEGIN(readability-identifier-naming): the names of C
const char* tavlo_version(void) {
  return TAVLO_VERSION;
}

tavlo_error_kind tavlo_error_kind_of(const tavlo_error* error) {
  return error != nullptr ? error->kind : TAVLO_ERROR_OTHER;
}

int tavlo_error_code(const tavlo_error* error) {
  return error != nullptr ? error->code : 0;
}

const char* tavlo_error_message(const tavlo_error* error) {
  return error != nullptr ? error->message.c_str() : "";
}

void tavlo_error_free(tavlo_error* error) {
  if (error != &noMemory) delete error;
}

const uint8_t* tavlo_data_bytes(const tavlo_data* data) {
  return data != nullptr ? data->bytes.data() : nullptr;
}

size_t tavlo_data_length(const tavlo_data* data) {
  return data != nullptr ? data->bytes.size() : 0;
}

void tavlo_data_free(tavlo_data* data) {
  if (data != nullptr) foundation::wipe(data->bytes);  // records and requests hold personal data
  delete data;
}

tavlo_model* tavlo_model_create(tavlo_error** error) {
  return guarded(error, [] { return new tavlo_model; });
}

bool tavlo_model_add(tavlo_model* model, const uint8_t* bytes, size_t length, tavlo_error** error) {
  return guarded(error, [&] {
    auto& value = given(model, "model").value;
    const auto file = givenBytes(bytes, length, "bytes");
    if (file.size() > tavlo::reader::maximumElementaryFileSize) throw ArgumentError("the file is longer than 4 MiB");
    value.add(tavlo::reader::DataGroup::parse(copyOf(file)));
    return true;
  });
}

tavlo_model* tavlo_model_read_folder(const char* folder, tavlo_error** error) {
  return guarded(error, [&] {
    auto reading = tavlo::reader::readDocument(std::filesystem::path(givenText(folder, "folder")));
    for (const auto& finding : reading.findings) {
      if (finding.kind == tavlo::reader::FileFinding::Kind::malformed) {
        throw tavlo::reader::ReaderError(finding.name + ": " + finding.text);
      }
    }
    return new tavlo_model{std::move(reading.model)};
  });
}

void tavlo_model_free(tavlo_model* model) {
  delete model;
}

tavlo_image* tavlo_image_decode(const uint8_t* bytes, size_t length, tavlo_error** error) {
  return guarded(error,
                 [&] { return new tavlo_image{tavlo::uikit::UIImage::decode(givenBytes(bytes, length, "bytes"))}; });
}

tavlo_image* tavlo_image_from_pixels(const uint8_t* pixels, size_t length, size_t width, size_t height, size_t stride,
                                     size_t channels, tavlo_error** error) {
  return guarded(error, [&] {
    if (channels != 3 && channels != 4) throw ArgumentError("channels are neither 3 nor 4");
    const auto format = channels == 3 ? tavlo::uikit::PixelFormat::rgb : tavlo::uikit::PixelFormat::rgba;
    return new tavlo_image{
        tavlo::uikit::UIImage::fromPixels(givenBytes(pixels, length, "pixels"), width, height, stride, format)};
  });
}

void tavlo_image_free(tavlo_image* image) {
  delete image;
}

tavlo_document* tavlo_passport_create(const tavlo_model* model, tavlo_error** error) {
  return guarded(error, [&] { return makeDocument<tavlo::Passport>(given(model, "model").value); });
}

tavlo_document* tavlo_passport_demo(tavlo_error** error) {
  return guarded(error, [] { return makeDocument<tavlo::Passport>(tavlo::IsDemo{true}); });
}

tavlo_document* tavlo_certificate_create(const tavlo_document* passport, tavlo_error** error) {
  return guarded(error, [&] { return makeDocument<tavlo::CertificationDocument>(passportOf(passport)); });
}

tavlo_document* tavlo_passport_from_json(const uint8_t* json, size_t length, tavlo_error** error) {
  return guarded(error, [&] { return readDocument<tavlo::Passport>(json, length); });
}

tavlo_document* tavlo_document_from_json(const uint8_t* json, size_t length, tavlo_error** error) {
  return guarded(error, [&] { return readDocument<tavlo::CredentialDocument>(json, length); });
}

tavlo_data* tavlo_document_to_json(const tavlo_document* document, tavlo_error** error) {
  return guarded(error,
                 [&] { return new tavlo_data{foundation::JSONEncoder().encode(*given(document, "document").value)}; });
}

tavlo_data* tavlo_document_picture(const tavlo_document* document, tavlo_picture picture, tavlo_error** error) {
  return guarded(error, [&]() -> tavlo_data* {
    const auto& record = *given(document, "document").value;
    const auto image = picture == TAVLO_SIGNATURE ? record.signature() : record.image();
    auto file = image ? UIImagePNGRepresentation(*image) : std::nullopt;
    return file ? new tavlo_data{*std::move(file)} : nullptr;
  });
}

void tavlo_document_free(tavlo_document* document) {
  delete document;
}

void tavlo_verify(const tavlo_model* model, const tavlo_document* passport, const tavlo_image* selfie,
                  tavlo_completion completion, void* context) {
  request(completion, context, [&](tavlo::Completion done) {
    tavlo::TavloCA::verify(given(model, "model").value, passportOf(passport), given(selfie, "selfie").value,
                           std::move(done));
  });
}

tavlo_data* tavlo_build(const tavlo_model* model, const tavlo_image* selfie, const uint8_t* public_key, size_t length,
                        tavlo_error** error) {
  return guarded(error, [&] {
    tavlo::DataGroups groups;
    for (const auto& [id, group] : given(model, "model").value.dataGroupsRead()) groups.push_back(group);
    const auto& picture = given(selfie, "selfie").value;
    const auto key = publicKeyOf(givenBytes(public_key, length, "public_key"));
    auto body = tavlo::TavloCA::verificationObject(groups, picture, *key);
    if (!body) throw tavlo::CAError("Could not create verification object");
    return new tavlo_data{*std::move(body)};
  });
}

tavlo_data* tavlo_public_key(const char* document_number, tavlo_error** error) {
  return guarded(error, [&] { return publicKeyUnder(givenText(document_number, "document_number")); });
}

tavlo_data* tavlo_model_public_key(const tavlo_model* model, tavlo_error** error) {
  return guarded(error, [&] { return publicKeyUnder(given(model, "model").value.documentNumber()); });
}

void tavlo_post(const uint8_t* bytes, size_t length, const char* url, tavlo_completion completion, void* context) {
  request(completion, context, [&](tavlo::Completion done) {
    tavlo::TavloCA::post(copyOf(givenBytes(bytes, length, "bytes")), givenText(url, "url"), std::move(done));
  });
}

bool tavlo_set_print_handler(tavlo_print_handler handler, void* context, tavlo_error** error) {
  return guarded(error, [&] {
    foundation::PrintHandler lines;
    if (handler != nullptr) lines = [=](std::string_view line) { handler(context, line.data(), line.size()); };
    foundation::setPrintHandler(std::move(lines));
    return true;
  });
}

bool tavlo_silence(tavlo_error** error) {
  return tavlo_set_print_handler([](void*, const char*, size_t) {}, nullptr, error);
}

bool tavlo_set_folder(const char* folder, tavlo_error** error) {
  return guarded(error, [&] {
    const std::filesystem::path path = std::filesystem::absolute(givenText(folder, "folder"));
    auto keys = std::make_shared<tavlo::store::FileKeyStore>(path / "keys");
    tavlo::common::ImageStore::install(std::make_shared<tavlo::common::FileImageStore>(path / "images"));
    tavlo::store::KeyStore::install(std::move(keys));
    return true;
  });
}

bool tavlo_set_device(const char* system_version, const char* model, tavlo_error** error) {
  return guarded(error, [&] {
    std::shared_ptr<HostDevice> device;
    if (system_version != nullptr) device = std::make_shared<HostDevice>(system_version, model);
    tavlo::uikit::UIDevice::install(std::move(device));
    return true;
  });
}

bool tavlo_set_key_source(tavlo_key_source source, void* context, tavlo_error** error) {
  return guarded(error, [&] {
    tavlo::store::KeyStore::install(source != nullptr ? std::make_shared<HostKeys>(source, context) : nullptr);
    return true;
  });
}

bool tavlo_set_session(tavlo_session session, void* context, tavlo_error** error) {
  return guarded(error, [&] {
    foundation::URLSession::install(session != nullptr ? std::make_shared<HostSession>(session, context) : nullptr);
    return true;
  });
}

const char* tavlo_exchange_url(const tavlo_exchange* exchange) {
  return exchange != nullptr ? exchange->request.url.absoluteString().c_str() : "";
}

const uint8_t* tavlo_exchange_body(const tavlo_exchange* exchange) {
  return exchange != nullptr ? exchange->request.httpBody.data() : nullptr;
}

size_t tavlo_exchange_body_length(const tavlo_exchange* exchange) {
  return exchange != nullptr ? exchange->request.httpBody.size() : 0;
}

double tavlo_exchange_timeout(const tavlo_exchange* exchange) {
  return exchange != nullptr ? exchange->request.timeoutInterval.count() : 0;
}

void tavlo_exchange_answer(tavlo_exchange* exchange, int status, const uint8_t* body, size_t length) {
  if (exchange == nullptr) return;
  std::optional<Data> copy;
  std::exception_ptr error;
  try {
    if (length > TAVLO_MAXIMUM_LENGTH) throw URLError(URLError::Code::dataLengthExceedsMaximum);
    copy = copyOf(givenBytes(body, length, "body"));
  } catch (...) {
    error = std::current_exception();
  }
  end(exchange, std::move(copy), status, error);
}

void tavlo_exchange_fail(tavlo_exchange* exchange, tavlo_network_code code) {
  if (exchange == nullptr) return;
  std::exception_ptr error;
  try {
    error = std::make_exception_ptr(URLError(static_cast<URLError::Code>(code)));
  } catch (...) {  // no memory: what was thrown tells
    error = std::current_exception();
  }
  end(exchange, std::nullopt, 0, error);
}
// NOLINTEND(readability-identifier-naming)
