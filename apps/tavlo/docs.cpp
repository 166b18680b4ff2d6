#include <Foundation/JSONEncoder.hpp>
#include <Foundation/JSONValue.hpp>
#include <TavloReader/DataGroups.hpp>

#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <filesystem>
#include <iostream>
#include <memory>
#include <system_error>
#include <utility>
#include <vector>

#include "Commands.hpp"
#include "DocumentFolder.hpp"
#include "Failure.hpp"
#include "Input.hpp"
#include "Output.hpp"
#include "Report.hpp"

namespace tavlo::app {

namespace fs = std::filesystem;
using foundation::Data;
using foundation::JSONArray;
using foundation::JSONObject;
using foundation::JSONSerialization;
using foundation::JSONValue;

namespace {

using Access = DocumentFolder::Access;

struct DocsOptions {
  std::optional<std::string> folder;
  std::string passport;
  std::string id;
  std::string file;
  std::optional<std::string> images;
  std::optional<std::string> out;
  bool json = false;
  bool yes = false;
};

struct Field {
  std::string_view label;
  std::string (CredentialDocument::*read)() const;
};

constexpr std::array fields{
    Field{"document number", &CredentialDocument::documentNumber},
    Field{"nationality", &CredentialDocument::nationality},
    Field{"last name", &CredentialDocument::lastName},
    Field{"first name", &CredentialDocument::firstName},
    Field{"date of birth", &CredentialDocument::dateOfBirth},
    Field{"gender", &CredentialDocument::gender},
    Field{"date of expiry", &CredentialDocument::documentExpiryDate},
};

struct Flag {
  std::string_view name;
  bool (CredentialDocument::*read)() const;
};

constexpr std::array flags{
    Flag{"isExpired", &CredentialDocument::isExpired}, Flag{"isBlocked", &CredentialDocument::isBlocked},
    Flag{"isSigned", &CredentialDocument::isSigned},   Flag{"isLocked", &CredentialDocument::isLocked},
    Flag{"isValid", &CredentialDocument::isValid},
};

/// A picture that a document names.
struct Picture {
  std::string label;  ///< such as "portrait", or "portrait-1.2" for that of the first child's second child
  std::string name;
  std::size_t width = 0;
  std::size_t height = 0;
  std::string problem;  ///< why it cannot be shown
};

/// Writes a new file. A file that is there with other bytes stays as it is.
void deliverInto(const fs::path& folder, const std::string& name, foundation::DataView bytes) {
  const fs::path file = folder / name;
  try {
    if (!fs::is_directory(folder)) foundation::createPrivateFolder(folder);
    if (foundation::writePrivately(file, bytes, foundation::IfExists::fail)) return;
    if (std::ranges::equal(foundation::contentsOf(file), bytes)) return;
  } catch (const std::system_error& error) {
    throw Failure(ExitCode::output, error.what());
  }
  throw Failure(ExitCode::output, file.string() + " is there already, with other content. Name another folder");
}

void deliverLine(const std::string& text) {
  deliver(foundation::dataOf(text + "\n"));
}

void deliverJSON(const JSONValue& value) {
  deliverLine(std::string(foundation::textOf(foundation::JSONEncoder().encode(value))));
}

std::string titleOf(const CredentialDocument& document) {
  const auto type = document.documentType();
  return type ? std::string(title(*type)) : "Document of unknown kind";
}

/// Calls `visit` with `document` and all below it, and the number of each: empty, "1", "1.1", "2" and so on.
template <class Visit>
void forEachDocument(const CredentialDocument& document, const std::string& number, const Visit& visit) {
  visit(document, number);
  const auto children = document.children();
  for (std::size_t i = 0; i < children.size(); ++i) {
    forEachDocument(*children[i], (number.empty() ? "" : number + ".") + std::to_string(i + 1), visit);
  }
}

/// Looks into the pictures of a stored document, and writes them as PNG into the folder `images` if there is one.
std::vector<Picture> lookInto(const DocumentFolder& folder, const CredentialDocument& stored,
                              const std::optional<std::string>& images) {
  std::vector<Picture> pictures;
  const auto look = [&](std::string label, const std::optional<std::string>& name) {
    if (!name) return;
    Picture& picture = pictures.emplace_back();
    picture.label = std::move(label);
    picture.name = *name;
    // Not by `image()`: without a stored picture that looks for a file of this name in the working folder.
    std::optional<uikit::UIImage> image;
    try {
      image = uikit::UIImage::decode(folder.picture(*name));
    } catch (const std::exception& error) {
      picture.problem = error.what();
      tell("tavlo: " + picture.label + ", " + *name + ": " + picture.problem);
      return;
    }
    picture.width = image->width();
    picture.height = image->height();
    if (const auto png = UIImagePNGRepresentation(*image); images && png) {
      deliverInto(*images, picture.label + ".png", *png);
    }
  };
  forEachDocument(stored, "", [&](const CredentialDocument& document, const std::string& number) {
    const std::string suffix = number.empty() ? "" : "-" + number;
    look("portrait" + suffix, document.portraitFilename());
    look("signature" + suffix, document.signatureFilename());
  });
  return pictures;
}

std::string textOf(const std::string& id, const StoredDocument& stored, const std::vector<Picture>& pictures) {
  std::string text;
  forEachDocument(*stored.document, "", [&](const CredentialDocument& document, const std::string& number) {
    Rows rows{{"kind", titleOf(document)}};
    for (const auto& [label, read] : fields) rows.emplace_back(label, (document.*read)());
    if (const auto signing = document.certificateSigningRequest()) rows.emplace_back("signing request", *signing);
    if (number.empty() && stored.credential) rows.emplace_back("credential", stored.credential->string());
    appendSection(text, number.empty() ? "Document " + id : "Child " + number, rows);
  });
  Rows rows;
  for (const auto& [label, name, width, height, problem] : pictures) {
    const std::string size = std::to_string(width) + " x " + std::to_string(height) + " pixels";
    rows.emplace_back(label, name + ", " + (problem.empty() ? size : "cannot be shown"));
  }
  appendSection(text, "Pictures", rows);
  rows.clear();
  for (const auto& [name, read] : flags) rows.emplace_back(name, (*stored.document.*read)() ? "true" : "false");
  appendSection(text, "Constants of every record, never the result of a check", rows);
  return text;
}

JSONValue jsonOf(const std::string& id, const StoredDocument& stored, const std::vector<Picture>& pictures) {
  JSONArray array;
  for (const auto& [label, name, width, height, problem] : pictures) {
    JSONObject picture{{"label", label}, {"name", name}};
    if (problem.empty()) {
      picture["width"] = width;
      picture["height"] = height;
    } else {
      picture["problem"] = problem;
    }
    array.emplace_back(std::move(picture));
  }
  JSONObject constants;
  for (const auto& [name, read] : flags) constants.emplace(name, (*stored.document.*read)());
  JSONObject shown{{"id", id},
                   {"document", JSONSerialization::jsonObject(stored.json)},
                   {"pictures", std::move(array)},
                   {"constants", std::move(constants)}};
  if (stored.credential) shown["credential"] = stored.credential->string();
  return shown;
}

/// Keeps the document that `makeDocument` makes, and writes its ID.
template <class MakeDocument>
void keep(const DocsOptions& options, const MakeDocument& makeDocument) {
  const std::string id = [&] {
    DocumentFolder folder(DocumentFolder::path(options.folder), Access::change);
    return folder.add(foundation::JSONEncoder().encode(makeDocument()));
  }();
  deliverLine(id);
}

void add(const DocsOptions& options) {
  const auto model = loadDocument(options.passport);
  if (model.documentNumber().empty()) {
    throw Failure(ExitCode::input, options.passport + ": no document number. A passport is kept with its DG1");
  }
  if (model.find<reader::DataGroup2>() != nullptr && !model.passportImage()) {
    tell("tavlo: the portrait cannot be decoded. It is left out");
  }
  if (model.find<reader::DataGroup7>() != nullptr && !model.signatureImage()) {
    tell("tavlo: the signature cannot be decoded. It is left out");
  }
  keep(options, [&] { return make<Passport>(model); });
}

void demo(const DocsOptions& options) {
  keep(options, [] { return make<Passport>(IsDemo{}); });
}

void list(const DocsOptions& options) {
  const auto contents = DocumentFolder(DocumentFolder::path(options.folder), Access::read).contents();
  if (options.json) {
    JSONArray documents;
    for (const auto& [id, stored] : contents.documents) {
      documents.emplace_back(JSONObject{{"id", id}, {"document", JSONSerialization::jsonObject(stored.json)}});
    }
    JSONArray damaged;
    for (const auto& [file, reason] : contents.damaged) {
      damaged.emplace_back(JSONObject{{"file", file}, {"reason", reason}});
    }
    deliverJSON(JSONObject{{"documents", std::move(documents)}, {"damaged", std::move(damaged)}});
  } else {
    std::string text;
    for (const auto& [id, stored] : contents.documents) {
      const Passport& document = *stored.document;
      text += id + "  " +
              printable(titleOf(document) + " " + document.documentNumber() + ", " + document.lastName() + ", " +
                        document.firstName() + "; children: " + std::to_string(document.children().size())) +
              "\n";
    }
    deliver(foundation::dataOf(text));
  }
  for (const auto& [file, reason] : contents.damaged) tellDamage(file, reason);
  if (!contents.damaged.empty()) {
    throw Failure(ExitCode::documents, "Documents that cannot be used: " + std::to_string(contents.damaged.size()) +
                                           ", as told above. Put sound copies in their place or remove them");
  }
  if (contents.documents.empty()) tell("tavlo: no documents in " + DocumentFolder::path(options.folder).string());
}

void show(const DocsOptions& options) {
  std::optional<DocumentFolder> folder(std::in_place, DocumentFolder::path(options.folder), Access::read);
  const auto stored = folder->read(options.id);
  const auto pictures = lookInto(*folder, *stored.document, options.images);
  folder.reset();
  if (options.json) return deliverJSON(jsonOf(options.id, stored, pictures));
  deliver(foundation::dataOf(textOf(options.id, stored, pictures)));
}

void certify(const DocsOptions& options) {
  DocumentFolder folder(DocumentFolder::path(options.folder), Access::change);
  const auto stored = folder.read(options.id);
  if (stored.document->documentType() == DocumentType::H) {
    throw Failure(ExitCode::documents,
                  options.id + " is a certificate itself. Name the passport that one is to rest on");
  }
  const auto certificate = make<CertificationDocument>(*stored.document);
  if (options.images) {
    const auto logo = certificate->icon();
    const auto png = logo ? UIImagePNGRepresentation(*logo) : std::nullopt;
    if (png) deliverInto(*options.images, "logo.png", *png);
  }
  JSONValue record = JSONSerialization::jsonObject(stored.json);
  auto& children = *record.getIf<JSONObject>()->at("children").getIf<JSONArray>();
  children.emplace_back(certificate->json().value());
  folder.replace(options.id, foundation::JSONEncoder().encode(record));
}

void exportDocument(const DocsOptions& options) {
  std::optional<DocumentFolder> folder(std::in_place, DocumentFolder::path(options.folder), Access::read);
  const auto stored = folder->read(options.id);
  int missing = 0;
  for (const std::string& name : options.images ? pictureNames(*stored.document) : std::set<std::string>()) {
    Data bytes;
    try {
      bytes = folder->picture(name);
    } catch (const std::system_error& error) {
      tell("tavlo: " + std::string(error.what()));
      ++missing;
      continue;
    }
    deliverInto(*options.images, name, bytes);
  }
  folder.reset();
  deliver(stored.json, options.out);
  if (missing > 0) {
    throw Failure(ExitCode::documents, "Missing pictures: " + std::to_string(missing) + ", as told above");
  }
}

void importDocument(const DocsOptions& options) {
  const auto json = loadFile(options.file);
  const std::string id =
      DocumentFolder(DocumentFolder::path(options.folder), Access::change).import(json, options.images);
  deliverLine(id);
}

bool isConfirmed(const std::string& id) {
  if (::isatty(STDIN_FILENO) == 0) {
    throw Failure(ExitCode::wrongUse, "Nobody can be asked here. Add --yes to remove the document");
  }
  std::cerr << "Remove the document " << id << " with its children and pictures? [y/N] ";
  std::string answer;
  std::getline(std::cin, answer);
  return answer == "y" || answer == "yes";
}

void remove(const DocsOptions& options) {
  DocumentFolder(DocumentFolder::path(options.folder), Access::read).require(options.id);
  if (!options.yes && !isConfirmed(options.id)) return tell("tavlo: nothing was removed");
  DocumentFolder(DocumentFolder::path(options.folder), Access::change).remove(options.id);
}

}  // namespace

void addDocs(CLI::App& app) {
  CLI::App* docs = app.add_subcommand("docs", "Keep documents in a folder, with their pictures and certificates");
  docs->require_subcommand(1);
  docs->fallthrough();
  docs->footer(
      "Examples:\n"
      "  tavlo docs add --passport samples/td3-jpeg\n"
      "  tavlo docs list --folder my-documents\n"
      "  tavlo docs show 0123456789ab --images pictures\n\n" +
      exitCodeHelp());

  const auto options = std::make_shared<DocsOptions>();
  docs->add_option("--folder", options->folder, "Where the documents are, by default in your data folder")
      ->type_name("FOLDER");
  const auto addCommand = [&](const std::string& name, const std::string& text, void (*run)(const DocsOptions&)) {
    CLI::App* command = docs->add_subcommand(name, text);
    command->callback([options, run] {
      try {
        run(*options);
      } catch (const std::system_error& error) {
        throw documentsFailure(error);
      }
    });
    return command;
  };
  const auto addId = [&](CLI::App* command) {
    command->add_option("id", options->id, "ID of the document")->required()->type_name("ID");
  };
  const auto addImages = [&](CLI::App* command, const std::string& text) {
    command->add_option("--images", options->images, text)->type_name("FOLDER");
  };

  CLI::App* command = addCommand("add", "Keep a passport that was read, and write its ID", add);
  command->add_option("--passport", options->passport, "Folder with the elementary files of the passport")
      ->required()
      ->type_name("FOLDER");

  addCommand("demo", "Keep a fictitious passport, and write its ID", demo);

  command = addCommand("list", "List the documents, personal data included", list);
  command->add_flag("--json", options->json, "Write the records as JSON");

  command = addCommand("show", "Show a document and its children, personal data included", show);
  addId(command);
  command->add_flag("--json", options->json, "Write the record as JSON");
  addImages(command, "Write the portraits and signatures there as PNG");

  command = addCommand("certify", "Add a certificate to a passport, as its last child", certify);
  addId(command);
  addImages(command, "Write the issuer's logo there as PNG; it is kept nowhere else");

  command = addCommand("export", "Write the record as it is kept", exportDocument);
  addId(command);
  command->add_option("--out", options->out, "Write to this file instead of standard output")->type_name("FILE");
  addImages(command, "Copy the pictures there, under the names in the record");

  command = addCommand("import", "Keep a record that was exported, and write its new ID", importDocument);
  command->add_option("file", options->file, "The record")->required()->type_name("FILE");
  addImages(command, "Where the pictures are that the record names and the folder does not have");

  command = addCommand("remove", "Remove a document, and the pictures that no other one names", remove);
  addId(command);
  command->add_flag("--yes", options->yes, "Do not ask");
}

}  // namespace tavlo::app
