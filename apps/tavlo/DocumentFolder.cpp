#include "DocumentFolder.hpp"

#include <Foundation/JSONDecoder.hpp>
#include <Foundation/Uninterrupted.hpp>
#include <TavloCommon/FileImageStore.hpp>

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <exception>
#include <stdexcept>
#include <system_error>
#include <utility>
#include <vector>

#include "Output.hpp"

namespace tavlo::app {

namespace fs = std::filesystem;
using foundation::Data;
using foundation::DataView;

namespace {

/// Far more than a passport with all its certificates takes, in bytes.
constexpr std::size_t maximumRecordSize = std::size_t{1} << 20;
/// How many documents a folder may hold.
constexpr std::size_t maximumDocuments = 10'000;
/// More than any picture of a document takes, in bytes.
constexpr std::size_t maximumPictureSize = std::size_t{64} << 20;
/// How many documents one record may hold, itself included.
constexpr std::size_t maximumDocumentsInRecord = 1'000;
constexpr std::size_t idSize = 12;
/// Marks a folder as one of documents, too.
constexpr auto lockName = "documents.lock";

bool isId(std::string_view text) {
  return text.size() == idSize && text.find_first_not_of("0123456789abcdef") == std::string_view::npos;
}

std::string newId() {
  return foundation::randomName(idSize / 2);
}

/// Whether `name` is that of a file in the very folder, and none that a killed process may have left there.
bool isPlainName(std::string_view name) {
  const auto isUnfit = [](char c) { return c == '/' || c == '\x7F' || static_cast<unsigned char>(c) < 0x20; };
  return !name.empty() && name.size() <= 255 && !name.starts_with('.') && std::ranges::none_of(name, isUnfit);
}

/// Where the credential of the document in `record` is kept, if it has one.
fs::path credentialBeside(fs::path record) {
  return record.replace_extension(".pem");
}

bool isFile(const fs::path& path) {
  return fs::is_regular_file(fs::symlink_status(path));
}

/// Adds the documents below `document` and itself to `all`; throws std::runtime_error when they are too many.
void collect(const CredentialDocument& document, std::vector<const CredentialDocument*>& all) {
  if (all.size() == maximumDocumentsInRecord) throw std::runtime_error("it holds more than 1000 documents");
  all.push_back(&document);
  for (const auto& child : document.children()) collect(*child, all);
}

/// The document in `json`; throws std::exception with the reason when it is unfit to be kept.
StoredDocument parse(Data json) {
  if (json.size() > maximumRecordSize) throw std::runtime_error("the record is larger than 1 MiB");
  StoredDocument stored{{}, foundation::JSONDecoder().decode<std::shared_ptr<Passport>>(json), std::nullopt};
  for (const std::string& name : pictureNames(*stored.document)) {
    if (!isPlainName(name)) throw std::runtime_error("a picture in it has no plain file name");
  }
  stored.json = std::move(json);
  return stored;
}

StoredDocument load(const fs::path& file) {
  if (!isFile(file)) throw std::runtime_error("it is no regular file");
  if (!isId(file.stem().string())) throw std::runtime_error("its name is none that tavlo gives");
  StoredDocument stored = parse(foundation::contentsOf(file, maximumRecordSize));
  if (const fs::path credential = credentialBeside(file); isFile(credential)) stored.credential = credential;
  return stored;
}

/// Removes the files in `folder` whose name `isUnwanted`. What cannot be removed is left to the next time.
template <class IsUnwanted>
void removeFiles(const fs::path& folder, IsUnwanted isUnwanted) {
  std::error_code ignored;
  std::vector<fs::path> unwanted;
  for (const auto& entry : fs::directory_iterator(folder, ignored)) {
    if (isUnwanted(entry.path().filename().string())) unwanted.push_back(entry.path());
  }
  for (const fs::path& file : unwanted) ::unlink(file.c_str());
}

}  // namespace

/// A lock on a file that is given up with this object or the process.
class DocumentFolder::Lock {
 public:
  Lock(const fs::path& file, Access access) {
    const bool isForChange = access == Access::change;
    const int flags = O_CLOEXEC | (isForChange ? O_RDWR | O_CREAT : O_RDONLY);
    fd_ = foundation::uninterrupted([&] { return ::open(file.c_str(), flags, 0600); });
    const auto lock = [&] { return ::flock(fd_, isForChange ? LOCK_EX : LOCK_SH); };
    if (fd_ >= 0 && foundation::uninterrupted(lock) == 0) return;
    const int reason = errno;
    if (fd_ >= 0) ::close(fd_);
    throw std::system_error(reason, std::generic_category(), "cannot lock " + file.string());
  }
  ~Lock() { ::close(fd_); }
  Lock(const Lock&) = delete;
  Lock& operator=(const Lock&) = delete;

 private:
  int fd_;
};

/// The folder's pictures as the library's image store. Remembers what is new and why a picture was not kept, which the
/// library passes over.
class DocumentFolder::Pictures final : public common::ImageStore {
 public:
  explicit Pictures(fs::path folder) : folder_(std::move(folder)), files_(folder_) {}

  [[nodiscard]] std::optional<std::string> persist(const uikit::UIImage& image) override try {
    auto name = files_.persist(image);
    if (!name) throw std::runtime_error("a picture has no PNG form");
    new_.insert(*name);
    return name;
  } catch (...) {
    problem_ = std::current_exception();
    throw;
  }
  [[nodiscard]] std::optional<uikit::UIImage> load(std::string_view name) override { return files_.load(name); }

  /// Keeps bytes under a name of somebody else's choice, unless just these are there already.
  void keep(const std::string& name, DataView bytes) {
    if (!fs::exists(fs::symlink_status(file(name)))) {
      foundation::createPrivateFolder(folder_);
      new_.insert(name);
      foundation::writePrivately(file(name), bytes);
    } else if (!isFile(file(name)) || !std::ranges::equal(foundation::contentsOf(file(name)), bytes)) {
      throw Failure(ExitCode::input, "Something else is kept under the name " + name + " already");
    }
  }

  [[nodiscard]] fs::path file(const std::string& name) const { return folder_ / name; }
  [[nodiscard]] const fs::path& folder() const { return folder_; }
  [[nodiscard]] bool isNew(const std::string& name) const { return new_.contains(name); }
  /// From now on a record may name these, even one that cannot be read at that moment.
  void settle(const std::set<std::string>& names) {
    for (const std::string& name : names) new_.erase(name);
  }
  /// Throws why a picture was not kept, if there is one.
  void requireAll() const {
    if (problem_) std::rethrow_exception(problem_);
  }

 private:
  fs::path folder_;
  common::FileImageStore files_;
  std::set<std::string> new_;
  std::exception_ptr problem_;
};

Failure documentsFailure(const std::system_error& error) {
  std::string text = error.what();
  if (const auto* named = dynamic_cast<const fs::filesystem_error*>(&error)) {
    text = named->path1().string() + ": " + error.code().message();
  }
  if (error.code() == std::errc::no_space_on_device) {
    text += ". Free some space and try again";
  } else if (error.code() == std::errc::read_only_file_system || error.code() == std::errc::permission_denied) {
    text += ". Make the folder accessible, or name another with --folder";
  }
  return {ExitCode::documents, text};
}

std::set<std::string> pictureNames(const CredentialDocument& document) {
  std::vector<const CredentialDocument*> all;
  collect(document, all);
  std::set<std::string> names;
  for (const auto* one : all) {
    for (const auto& name : {one->portraitFilename(), one->signatureFilename()}) {
      if (name) names.insert(*name);
    }
  }
  return names;
}

void tellDamage(const std::string& file, const std::string& reason) {
  tell(std::string("tavlo: ").append(file).append(" cannot be used: ").append(reason));
}

fs::path DocumentFolder::path(const std::optional<std::string>& chosen) {
  if (chosen) return *chosen;
  try {
    return foundation::applicationSupportFolder() / "documents";
  } catch (const std::runtime_error& error) {
    throw Failure(ExitCode::wrongUse, error.what());
  }
}

DocumentFolder::DocumentFolder(fs::path folder, Access access)
    : folder_(std::move(folder)), access_(access), pictures_(std::make_shared<Pictures>(folder_ / "images")) {
  const fs::path lock = folder_ / lockName;
  // Another's folder must not be closed to others nor its files be swept. Looked at twice, as a process that makes the
  // folder at this moment puts the lock in first.
  if (!fs::exists(lock) && fs::is_directory(folder_) && !fs::is_empty(folder_) && !fs::exists(lock)) {
    throw Failure(ExitCode::documents,
                  folder_.string() + " holds other files and is no folder of documents. Choose a new one");
  }
  if (access == Access::change) foundation::createPrivateFolder(folder_);
  if (access == Access::change || fs::exists(lock)) lock_ = std::make_unique<Lock>(lock, access);
  if (access == Access::change) {
    for (const auto& [file, reason] : sweep()) tellDamage(file, reason);
  }
  previousStore_ = common::ImageStore::install(pictures_);
}

DocumentFolder::~DocumentFolder() {
  common::ImageStore::install(previousStore_);
  try {
    if (access_ == Access::change) sweep();
  } catch (const std::exception&) {  // NOLINT(bugprone-empty-catch): the next change sweeps
  }
}

DocumentFolder::Contents DocumentFolder::contents() const {
  Contents contents;
  for (const std::string& file : recordFiles()) {
    try {
      contents.documents.emplace(fs::path(file).stem(), load(folder_ / file));
    } catch (const std::exception& error) {
      contents.damaged.emplace(file, error.what());
    }
  }
  return contents;
}

StoredDocument DocumentFolder::read(const std::string& id) const {
  const fs::path file = existing(id);
  try {
    return load(file);
  } catch (const std::exception& error) {
    throw Failure(ExitCode::documents, file.filename().string() + " cannot be used: " + error.what() +
                                           ". Put a sound copy in its place, or give it up with \"tavlo docs remove\"");
  }
}

Data DocumentFolder::picture(const std::string& name) const {
  return foundation::contentsOf(pictures_->file(name), maximumPictureSize);
}

std::string DocumentFolder::add(DataView json, std::string_view credential) {
  if (recordFiles().size() >= maximumDocuments) {
    throw Failure(ExitCode::documents, folder_.string() + " is full with 10000 documents. Remove some");
  }
  std::string id = newId();
  while (fs::exists(fileOf(id)) || fs::exists(credentialBeside(fileOf(id)))) id = newId();
  try {
    if (!credential.empty()) {
      foundation::writePrivately(credentialBeside(fileOf(id)), foundation::dataOf(credential));
    }
    write(id, json);
  } catch (...) {
    ::unlink(credentialBeside(fileOf(id)).c_str());
    ::unlink(fileOf(id).c_str());  // It is in place already when only the folder could not be flushed.
    throw;
  }
  return id;
}

std::string DocumentFolder::import(DataView json, const std::optional<fs::path>& pictures) {
  std::set<std::string> names;
  try {
    names = pictureNames(*parse({json.begin(), json.end()}).document);
  } catch (const std::exception& error) {
    throw Failure(ExitCode::input, std::string("The file is no document that can be kept: ") + error.what());
  }
  for (const std::string& name : names) takeIn(name, pictures);
  return add(json);
}

void DocumentFolder::replace(const std::string& id, DataView json) {
  require(id);
  write(id, json);
}

void DocumentFolder::remove(const std::string& id) {
  fs::remove(existing(id));
  ::unlink(credentialBeside(fileOf(id)).c_str());
  access_ = Access::read;  // as long as the record may come back, its pictures do not go
  foundation::flushFolder(folder_);
  access_ = Access::change;
}

fs::path DocumentFolder::fileOf(const std::string& id) const {
  return folder_ / (id + ".json");
}

fs::path DocumentFolder::existing(const std::string& id) const {
  if (!isId(id))
    throw Failure(ExitCode::wrongUse, "\"" + id + "\" is no ID of a document. \"tavlo docs list\" shows them");
  if (fs::exists(fs::symlink_status(fileOf(id)))) return fileOf(id);
  throw Failure(ExitCode::documents, "There is no document " + id + ". \"tavlo docs list\" shows those there are");
}

std::set<std::string> DocumentFolder::recordFiles() const {
  std::set<std::string> files;
  if (!fs::exists(folder_)) return files;
  for (const auto& entry : fs::directory_iterator(folder_)) {
    if (entry.path().extension() == ".json") files.insert(entry.path().filename());
    if (files.size() > maximumDocuments) {
      throw Failure(ExitCode::documents, folder_.string() + " holds more than 10000 documents. Move some out");
    }
  }
  return files;
}

void DocumentFolder::write(const std::string& id, DataView json) {
  pictures_->requireAll();
  try {
    pictures_->settle(pictureNames(*parse({json.begin(), json.end()}).document));
  } catch (const std::exception& error) {
    throw Failure(ExitCode::documents, std::string("The document cannot be kept: ") + error.what());
  }
  foundation::writePrivately(fileOf(id), json);
}

void DocumentFolder::takeIn(const std::string& name, const std::optional<fs::path>& pictures) {
  std::error_code unreadable;  // is told when the picture is read
  if (!pictures || fs::status(*pictures / name, unreadable).type() == fs::file_type::not_found) {
    if (isFile(pictures_->file(name))) return;
    throw Failure(ExitCode::input, "The document names the picture " + name +
                                       ", which is not there. Name the folder that holds it with --images");
  }
  Data bytes;
  try {
    bytes = foundation::contentsOf(*pictures / name, maximumPictureSize);
    (void)uikit::UIImage::decode(bytes);
  } catch (const std::system_error& error) {
    throw Failure(ExitCode::input, error.what());
  } catch (const uikit::ImageError& error) {
    throw Failure(ExitCode::input, (*pictures / name).string() + ": " + error.what());
  }
  pictures_->keep(name, bytes);
}

std::map<std::string, std::string> DocumentFolder::sweep() {
  Contents all = contents();
  std::set<std::string> named;
  for (const auto& [id, stored] : all.documents) named.merge(pictureNames(*stored.document));
  foundation::sweepTemporaryFiles(folder_);
  foundation::sweepTemporaryFiles(pictures_->folder());
  removeFiles(pictures_->folder(), [&](const std::string& name) {
    return !named.contains(name) && (all.damaged.empty() || pictures_->isNew(name));
  });
  return std::move(all.damaged);
}

}  // namespace tavlo::app
