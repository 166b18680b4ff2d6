#pragma once

#include <Foundation/Data.hpp>
#include <TavloCA/CredentialDocument.hpp>
#include <TavloCommon/TavloCommon.hpp>

#include <filesystem>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <system_error>

#include "Failure.hpp"

namespace tavlo::app {

/// A document as it is kept.
struct StoredDocument {
  foundation::Data json;                            ///< the record's bytes, with members that the library does not know
  std::shared_ptr<Passport> document;               ///< what the library reads out of them
  std::optional<std::filesystem::path> credential;  ///< the file beside it with what was issued to its key
};

/// The names of the pictures of `document` and of all documents below it.
[[nodiscard]] std::set<std::string> pictureNames(const CredentialDocument& document);

/// Tells on standard error what is wrong with a record.
void tellDamage(const std::string& file, const std::string& reason);

/// What the file system's `error` means for the documents, with what to do about it.
[[nodiscard]] Failure documentsFailure(const std::system_error& error);

/// The documents that the program keeps in one private folder: each record in a file `id`.json, a credential beside it
/// in `id`.pem, and all pictures, which several records may name, in the folder "images". While an object lives, that
/// is where the library keeps pictures.
///
/// Pictures are written before the record that names them and removed after it, and each file is written whole or not
/// at all. A process that is killed so leaves nothing worse than temporary files, pictures that no record names and a
/// credential, which tells nothing of a person, without its record. The next change removes the former two, except
/// pictures as long as a damaged record might name them.
///
/// The object locks the folder for its life against other processes: for changing it alone, for reading beside other
/// readers. Everything throws std::system_error where the file system refuses, and Failure.
class DocumentFolder {
 public:
  enum class Access { read, change };

  /// The folder that a person has chosen, or else the one in the program's data. Throws Failure when there is none.
  [[nodiscard]] static std::filesystem::path path(const std::optional<std::string>& chosen);

  /// Opens `folder`; for a change makes it if it is missing, tells the damaged records on standard error, and removes
  /// what killed processes have left. Refuses a folder with other files in it.
  DocumentFolder(std::filesystem::path folder, Access access);
  /// Removes the pictures that were kept meanwhile and that no record has come to name.
  ~DocumentFolder();
  DocumentFolder(const DocumentFolder&) = delete;
  DocumentFolder& operator=(const DocumentFolder&) = delete;

  struct Contents {
    std::map<std::string, StoredDocument> documents;  ///< by ID
    std::map<std::string, std::string> damaged;       ///< what is wrong with a record, by its file's name
  };
  [[nodiscard]] Contents contents() const;

  /// Fails when there is no document `id`, a text that a person has given; it may be a damaged one.
  void require(const std::string& id) const { (void)existing(id); }
  /// The document `id`. Fails when there is none, or a damaged one.
  [[nodiscard]] StoredDocument read(const std::string& id) const;
  /// The bytes of the picture `name` of a stored document.
  [[nodiscard]] foundation::Data picture(const std::string& name) const;

  /// Keeps a record under a new ID. Fails when the library could not keep a picture through this object. A
  /// `credential`, the certificate in PEM that a service issued to the document's key, is kept beside it.
  [[nodiscard]] std::string add(foundation::DataView json, std::string_view credential = {});
  /// Keeps a record that comes from elsewhere under a new ID. The pictures that it names are copied out of the folder
  /// `pictures` unless they are here already. Nothing is overwritten.
  [[nodiscard]] std::string import(foundation::DataView json, const std::optional<std::filesystem::path>& pictures);
  /// Puts another record in place of that of `id`. Fails as `add` does.
  void replace(const std::string& id, foundation::DataView json);
  /// Removes the document `id`, damaged or not, and the pictures that no other document names.
  void remove(const std::string& id);

 private:
  class Lock;
  class Pictures;

  [[nodiscard]] std::filesystem::path fileOf(const std::string& id) const;
  /// The file of the document `id`, which is there.
  [[nodiscard]] std::filesystem::path existing(const std::string& id) const;
  /// The names of the files that should be records.
  [[nodiscard]] std::set<std::string> recordFiles() const;
  void write(const std::string& id, foundation::DataView json);
  /// Makes sure that the picture `name` is here.
  void takeIn(const std::string& name, const std::optional<std::filesystem::path>& pictures);
  /// Removes temporary files and pictures that no record names; gives the damaged records.
  std::map<std::string, std::string> sweep();

  std::filesystem::path folder_;
  Access access_;
  std::unique_ptr<Lock> lock_;
  std::shared_ptr<Pictures> pictures_;
  std::shared_ptr<common::ImageStore> previousStore_;
};

}  // namespace tavlo::app
