#pragma once

#include <Foundation/Coding.hpp>
#include <Foundation/Date.hpp>
#include <Foundation/JSONValue.hpp>
#include <Foundation/NSObject.hpp>
#include <TavloCA/DocumentType.hpp>
#include <TavloReader/NFCPassportModel.hpp>
#include <UIKit/UIImage.hpp>

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace tavlo {

/// Tells the initialiser for demo data from the others. Its value is not consulted.
struct IsDemo {
  /// Not consulted.
  bool value = true;
};

/// Lets `make` alone construct documents: an object is no document before one of its initialisers has run.
class MakeKey {
  MakeKey() = default;
  template <class T, class... Arguments>
  friend std::shared_ptr<T> make(Arguments&&... arguments);
};

/// Makes a document of class T: constructs it, then runs its `init` with these arguments, so that a subclass of yours
/// which overrides an accessor sees each step. Throws what `init` throws.
template <class T, class... Arguments>
[[nodiscard]] std::shared_ptr<T> make(Arguments&&... arguments) {
  auto document = std::make_shared<T>(MakeKey());
  document->init(std::forward<Arguments>(arguments)...);
  return document;
}

/// One field of a document with three overridable accessors: `name()` reads it, `setName(value)` writes it, and
/// `modifyName(change)` changes it in place, by default by reading it through the getter, calling `change`, and writing
/// it through the setter.
// clang-format off
#define TAVLO_FIELD(Type, name, Name)                                   \
 public:                                                                \
  [[nodiscard]] virtual Type name() const { return name##_; }           \
  virtual void set##Name(Type value) { name##_ = std::move(value); }    \
  virtual void modify##Name(const std::function<void(Type&)>& change) { \
    Type value = name();                                                \
    change(value);                                                      \
    set##Name(std::move(value));                                        \
  }                                                                     \
                                                                        \
 private:                                                               \
  Type name##_ {}
// clang-format on

/// The record of one identity document that an app keeps and shows. A plain mutable object, shared by reference and
/// compared by identity; not to be used by several threads at once.
///
/// Everything here reads and writes the fields through their accessors, so what a subclass overrides counts everywhere.
/// A subclass that overrides one `init` brings the others along with `using CredentialDocument::init;`.
class CredentialDocument : public foundation::NSObject {
 public:
  /// Documents in the order in which they are shown.
  using Children = std::vector<std::shared_ptr<CredentialDocument>>;

  /// For `make` alone.
  explicit CredentialDocument(MakeKey /*key*/) {}

  TAVLO_FIELD(std::optional<DocumentType>, documentType, DocumentType);  ///< the kind; absent when unknown
  TAVLO_FIELD(std::string, documentNumber, DocumentNumber);              ///< as received; names the key pair
  TAVLO_FIELD(std::string, nationality, Nationality);                    ///< as received
  TAVLO_FIELD(std::string, lastName, LastName);                          ///< as received
  TAVLO_FIELD(std::string, firstName, FirstName);                        ///< as received
  TAVLO_FIELD(std::string, dateOfBirth, DateOfBirth);                    ///< as received; YYMMDD from a passport
  TAVLO_FIELD(std::string, gender, Gender);                              ///< as received; "M", "F" or empty from one
  TAVLO_FIELD(std::string, documentExpiryDate, DocumentExpiryDate);      ///< as received; YYMMDD from a passport
  TAVLO_FIELD(std::optional<std::string>, portraitFilename, PortraitFilename);    ///< name that `persist` gave
  TAVLO_FIELD(std::optional<std::string>, signatureFilename, SignatureFilename);  ///< name that `persist` gave
  TAVLO_FIELD(std::optional<std::string>, certificateSigningRequest, CertificateSigningRequest);  ///< the app's own
  /// Documents that rest on this one. Never put a document among its own descendants: coding stops such a cycle with an
  /// error, but `description` does not end.
  TAVLO_FIELD(Children, children, Children);

 public:
  /// Takes the values as the passport gives them, and keeps its portrait and signature as image files. An unknown
  /// document code leaves `documentType` absent; a picture that is missing or cannot be kept leaves its file name
  /// absent.
  virtual void init(const reader::NFCPassportModel& model);

  // Constants of the record: none looks at a field, and none is the result of a check.
  [[nodiscard]] virtual bool isExpired() const { return false; }  ///< always false
  [[nodiscard]] virtual bool isBlocked() const { return false; }  ///< always false
  [[nodiscard]] virtual bool isSigned() const { return true; }    ///< always true
  [[nodiscard]] virtual bool isLocked() const { return true; }    ///< always true
  [[nodiscard]] virtual bool isValid() const { return true; }     ///< always true

  /// The portrait: the image kept under `portraitFilename`, else what the file of exactly that path holds. Absent, with
  /// a line in the reader's log, when there is no name or no file; absent without one when the file is no image.
  [[nodiscard]] virtual std::optional<uikit::UIImage> image() const;
  /// The signature, in the same way from `signatureFilename`.
  [[nodiscard]] virtual std::optional<uikit::UIImage> signature() const;

  /// Demo data, the same whatever the flag: a fictitious passport whose two images are kept as new files at each call.
  /// Ends the process when the library's own images are missing.
  virtual void init(IsDemo isDemo);

  /// The record as JSON members, exactly those that `encode` writes; absent when it cannot be encoded.
  [[nodiscard]] virtual std::optional<foundation::JSONObject> json() const;

  /// Reads the twelve members. The texts and "children" are required; the kind, the file names and the request may be
  /// missing or null. Children come back as base records, whatever they were. Throws DecodingError.
  virtual void init(foundation::Decoder& decoder);

  /// Writes the twelve members in their order, absent ones left out; each child through its own `encode`.
  virtual void encode(foundation::Encoder& encoder) const;

  /// Placeholder values; touches no file.
  virtual void init();

  /// The whole record in one line for people.
  [[nodiscard]] std::string description() const override;

 private:
  static constexpr auto members();
};

/// An electronic passport that was read. Adds nothing to the record: it lets an app name a passport in its types. The
/// kind is whatever the chip says.
class Passport : public CredentialDocument {
 public:
  using CredentialDocument::CredentialDocument;
};

/// A certificate issued to the holder of a passport; always of kind `H`. Made only by `make<T>(passport)`: every other
/// way ends the process. Its three own fields are never written out, and what was written is read back as a base record
/// or a Passport.
class CertificationDocument : public CredentialDocument {
 public:
  using CredentialDocument::CredentialDocument;

  TAVLO_FIELD(std::optional<std::string>, issuerLogoFilename, IssuerLogoFilename);  ///< name that `persist` gave
  TAVLO_FIELD(foundation::Date, issuedAt, IssuedAt);                                ///< when this object was made
  TAVLO_FIELD(std::shared_ptr<Passport>, passport, Passport);  ///< the app's own; the library never sets it

 public:
  /// Takes names, date of birth, gender and the name of the signature's file from `passport`, of which nothing is kept.
  /// The rest is fixed; the portrait is the library's demo portrait, never the holder's. It and the logo "corona",
  /// where the host app's main bundle has one, become new image files at each call; the name of one that cannot be kept
  /// is absent. Ends the process when the library's own portrait is missing.
  virtual void init(const Passport& passport);

  /// The issuer's logo, from `issuerLogoFilename` as `image` gives the portrait.
  [[nodiscard]] virtual std::optional<uikit::UIImage> icon() const;

  [[noreturn]] void init(foundation::Decoder& decoder) override;           ///< ends the process; reads nothing
  [[noreturn]] void init(const reader::NFCPassportModel& model) override;  ///< ends the process
  [[noreturn]] void init(IsDemo isDemo) override;                          ///< ends the process
  [[noreturn]] void init() override;                                       ///< ends the process
};

#undef TAVLO_FIELD

}  // namespace tavlo

/// Documents are written by their own `encode`; what class a stored document becomes is for the reader to choose.
template <std::derived_from<tavlo::CredentialDocument> Document>
struct tavlo::foundation::Coding<std::shared_ptr<Document>> {
  static void encode(const std::shared_ptr<Document>& document, Encoder& encoder) {
    if (!document) throw EncodingError(encoder.codingPath(), "there is no document");
    document->encode(encoder);
  }
  static std::shared_ptr<Document> decode(Decoder& decoder) { return make<Document>(decoder); }
};
