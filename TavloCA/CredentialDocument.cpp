#include <TavloCA/CredentialDocument.hpp>

#include <Foundation/Bundle.hpp>
#include <Foundation/Data.hpp>
#include <Foundation/FatalError.hpp>
#include <Foundation/JSONEncoder.hpp>
#include <Foundation/URL.hpp>
#include <TavloCA/Resources.internal.hpp>
#include <TavloCommon/TavloCommon.hpp>
#include <TavloReader/Log.hpp>

#include <chrono>
#include <exception>
#include <string_view>
#include <tuple>

namespace tavlo {

namespace {

using foundation::Data;
using reader::Log;
using uikit::UIImage;

constexpr std::string_view sourceFile = "CredentialDocument";

UIImage requiredAsset(std::string_view name) {
  const auto bundle = foundation::Bundle::ofLibrary("TavloCA", compiledResources);
  auto image = UIImage::named(name, *bundle);
  if (!image) {
    foundation::fatalError("Unexpectedly found nil while unwrapping an Optional value", sourceFile);
  }
  return *std::move(image);
}

[[noreturn]] void endUnimplemented(std::string_view initialiser) {
  foundation::fatalError(
      "Use of unimplemented initialiser " + std::string(initialiser) + " of class TavloCA.CertificationDocument",
      sourceFile);
}

/// The image that a stored name stands for; `logMissingName` tells that there is no name.
template <class LogMissingName>
std::optional<UIImage> storedImage(const std::optional<std::string>& name, LogMissingName logMissingName) {
  if (!name) {
    logMissingName();
    return std::nullopt;
  }
  if (auto image = common::fromURL(*name)) return image;
  std::optional<Data> bytes;
  try {
    bytes = foundation::contentsOf(foundation::URL::fileURLWithPath(*name).path());
  } catch (const std::exception&) {
    Log::error("Could not get data");
    return std::nullopt;
  }
  return UIImage::fromData(*bytes);
}

/// The text in double quotes, with what would be misread escaped.
std::string debugDescription(std::string_view text) {
  static constexpr std::string_view digits = "0123456789ABCDEF";
  std::string quoted = "\"";
  for (const char c : text) {
    const auto code = static_cast<unsigned char>(c);
    switch (c) {
      case '"':
        quoted += "\\\"";
        break;
      case '\\':
        quoted += "\\\\";
        break;
      case '\0':
        quoted += "\\0";
        break;
      case '\n':
        quoted += "\\n";
        break;
      case '\r':
        quoted += "\\r";
        break;
      case '\t':
        quoted += "\\t";
        break;
      default:
        if (code < 0x20 || code == 0x7F) {
          quoted += {'\\', 'u', '{', digits[code >> 4U], digits[code & 15U], '}'};
        } else {
          quoted += c;
        }
    }
  }
  return quoted + "\"";
}

std::string describe(const std::string& text) {
  return text;
}

std::string describe(const std::optional<std::string>& text) {
  return text ? "Optional(" + debugDescription(*text) + ")" : "nil";
}

std::string describe(const std::optional<DocumentType>& type) {
  return type ? "Optional(TavloCA.DocumentType." + std::string(rawValue(*type)) + ")" : "nil";
}

std::string describe(const CredentialDocument::Children& children) {
  std::string text = "[";
  for (const auto& child : children) {
    if (text.size() > 1) text += ", ";
    text += child ? child->description() : "nil";
  }
  return text + "]";
}

}  // namespace

constexpr auto CredentialDocument::members() {
  using Record = CredentialDocument;
  using foundation::member;
  return std::tuple{
      member("documentType", &Record::documentType, &Record::setDocumentType),
      member("documentNumber", &Record::documentNumber, &Record::setDocumentNumber),
      member("nationality", &Record::nationality, &Record::setNationality),
      member("lastName", &Record::lastName, &Record::setLastName),
      member("firstName", &Record::firstName, &Record::setFirstName),
      member("dateOfBirth", &Record::dateOfBirth, &Record::setDateOfBirth),
      member("gender", &Record::gender, &Record::setGender),
      member("documentExpiryDate", &Record::documentExpiryDate, &Record::setDocumentExpiryDate),
      member("portraitFilename", &Record::portraitFilename, &Record::setPortraitFilename),
      member("signatureFilename", &Record::signatureFilename, &Record::setSignatureFilename),
      member("certificateSigningRequest", &Record::certificateSigningRequest, &Record::setCertificateSigningRequest),
      member("children", &Record::children, &Record::setChildren),
  };
}

void CredentialDocument::init(const reader::NFCPassportModel& model) {
  setDocumentNumber(model.documentNumber());
  setNationality(model.nationality());
  setLastName(model.lastName());
  setFirstName(model.firstName());
  setDateOfBirth(model.dateOfBirth());
  setDocumentExpiryDate(model.documentExpiryDate());
  setGender(model.gender());
  setDocumentType(documentTypeFrom(model.documentType()));
  if (const auto portrait = model.passportImage()) setPortraitFilename(common::persist(*portrait));
  if (const auto signature = model.signatureImage()) setSignatureFilename(common::persist(*signature));
}

void CredentialDocument::init(IsDemo /*isDemo*/) {
  const UIImage portrait = requiredAsset("brenu1");
  const UIImage signature = requiredAsset("defaultSignature");
  setPortraitFilename(common::persist(portrait));
  setSignatureFilename(common::persist(signature));
  setFirstName("Sven");
  setLastName("Svensson");
  setDocumentType(documentTypeFrom("P"));
  setDocumentNumber("12345678");
  setNationality("SWE");
  setDateOfBirth("700101");
  setGender("M");
  setDocumentExpiryDate("200101");
}

void CredentialDocument::init() {
  setPortraitFilename(std::nullopt);
  setSignatureFilename(std::nullopt);
  setFirstName("Brenu");
  setLastName("Dannqvist");
  setDocumentType(documentTypeFrom("P"));
  setDocumentNumber("");
  setNationality("");
  setDateOfBirth("700101");
  setGender("M");
  setDocumentExpiryDate("");
}

void CredentialDocument::init(foundation::Decoder& decoder) {
  foundation::decodeMembers(*this, members(), decoder);
}

void CredentialDocument::encode(foundation::Encoder& encoder) const {
  foundation::encodeMembers(*this, members(), encoder);
}

std::optional<UIImage> CredentialDocument::image() const {
  return storedImage(portraitFilename(), [] { Log::error("portraitFilename == nil"); });
}

std::optional<UIImage> CredentialDocument::signature() const {
  return storedImage(signatureFilename(), [] { Log::warning("no signatureFilename"); });
}

std::optional<foundation::JSONObject> CredentialDocument::json() const {
  try {
    auto value = foundation::JSONSerialization::jsonObject(foundation::JSONEncoder().encode(*this),
                                                           foundation::JSONReadingOptions::fragmentsAllowed);
    if (auto* object = value.getIf<foundation::JSONObject>()) return std::move(*object);
  } catch (const std::exception&) {
  }
  return std::nullopt;
}

std::string CredentialDocument::description() const {
  std::string text = "CredentialDocument:";
  const auto append = [&](const auto& member) {
    text.append(" ").append(member.key).append(" ").append(describe(std::invoke(member.read, *this)));
  };
  std::apply([&](const auto&... members) { (append(members), ...); }, members());
  return text + " ";
}

void CertificationDocument::init(const Passport& passport) {
  issuerLogoFilename_.reset();
  issuedAt_ = std::chrono::system_clock::now();
  passport_.reset();
  CredentialDocument::init();  // by its name: this class's own ends the process
  setPortraitFilename(common::persist(requiredAsset("brenu1")));
  setSignatureFilename(passport.signatureFilename());
  setFirstName(passport.firstName());
  setLastName(passport.lastName());
  setDocumentType(documentTypeFrom("H"));
  setDocumentNumber("X47568723B");
  setNationality("ES");
  setDateOfBirth(passport.dateOfBirth());
  setGender(passport.gender());
  setDocumentExpiryDate("201121");
  const auto logo = UIImage::named("corona");
  issuerLogoFilename_ = logo ? common::persist(*logo) : std::nullopt;
}

std::optional<UIImage> CertificationDocument::icon() const {
  return storedImage(issuerLogoFilename(), [] { Log::error("issuerLogo == nil"); });
}

void CertificationDocument::init(foundation::Decoder& /*decoder*/) {
  foundation::fatalError("init(from:) has not been implemented by class TavloCA.CertificationDocument", sourceFile);
}

void CertificationDocument::init(const reader::NFCPassportModel& /*model*/) {
  endUnimplemented("init(model:)");
}

void CertificationDocument::init(IsDemo /*isDemo*/) {
  endUnimplemented("init(isDemo:)");
}

void CertificationDocument::init() {
  endUnimplemented("init()");
}

}  // namespace tavlo
