#include <specimen/Document.hpp>

#include <CLI/CLI.hpp>
#include <memory>
#include <regex>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "Commands.hpp"
#include "Failure.hpp"
#include "Input.hpp"

namespace tavlo::app {

namespace {

using reader::DataGroupId;
using reader::MRZ;
using specimen::FaceStandard;

/// The options as they were given; those of the document that are texts go right into it.
struct MakePassportOptions {
  specimen::Document document;
  std::string out;
  std::string authority;
  std::vector<std::string> portraits;
  std::string handSignature;
  std::string birth = "1985-07-23";
  std::string issued = "2025-01-01";
  std::string expires = "2034-12-31";
  std::string gender = "X";
  std::string format = "TD3";
  std::string faces = "19794";
  std::vector<int> groups = {11, 12, 14, 15};
  std::vector<std::string> tampering;
};

/// YYYY-MM-DD, or YYYY-MM or YYYY when the rest is not known, as eight digits with zeros for the rest.
std::string digitsOf(const std::string& date) {
  static const std::regex pattern("([0-9]{4})(?:-([0-9]{2})(?:-([0-9]{2}))?)?");
  std::smatch match;
  if (!std::regex_match(date, match, pattern)) throw std::invalid_argument(date + " is no date such as 2034-12-31");
  std::string digits = match[1].str() + match[2].str() + match[3].str();
  digits.resize(8, '0');
  return digits;
}

std::chrono::year_month_day dayOf(const std::string& date) {
  const std::string digits = digitsOf(date);
  const std::chrono::year_month_day day{std::chrono::year(std::stoi(digits.substr(0, 4))),
                                        std::chrono::month(static_cast<unsigned>(std::stoi(digits.substr(4, 2)))),
                                        std::chrono::day(static_cast<unsigned>(std::stoi(digits.substr(6))))};
  if (!day.ok()) throw std::invalid_argument(date + " is no day");
  return day;
}

specimen::Picture loadPicture(const std::string& file) {
  auto bytes = loadFile(file);
  try {
    return specimen::Picture::of(std::move(bytes));
  } catch (const std::runtime_error& error) {
    throw Failure(ExitCode::input, file + ": " + error.what());
  }
}

specimen::Authority loadAuthority(const std::string& folder) {
  try {
    return specimen::Authority::keptIn(folder);
  } catch (const std::runtime_error& error) {
    throw Failure(ExitCode::input, error.what());
  }
}

specimen::Document documentOf(const MakePassportOptions& options) {
  specimen::Document document = options.document;
  if (options.format != "TD3") document.printed.format = options.format == "TD1" ? MRZ::Format::TD1 : MRZ::Format::TD2;
  if (options.faces == "39794") document.faceStandard = FaceStandard::iso39794;
  document.printed.dateOfBirth = digitsOf(options.birth);
  document.printed.dateOfExpiry = dayOf(options.expires);
  document.printed.gender = options.gender.front();
  document.signature.date = dayOf(options.issued);
  document.groups.clear();
  for (const int number : options.groups) document.groups.insert(static_cast<DataGroupId>(number));
  for (const std::string& text : options.tampering) document.tampering.push_back(specimen::Tampering::parse(text));
  (void)specimen::zone(document.printed);  // is told before any file is looked at
  for (const std::string& file : options.portraits) document.portraits.push_back(loadPicture(file));
  if (!options.handSignature.empty()) document.handSignature = loadPicture(options.handSignature);
  return document;
}

void makePassport(const MakePassportOptions& options) try {
  const specimen::Document document = documentOf(options);
  const specimen::Files files = specimen::make(document, loadAuthority(options.authority));
  try {
    specimen::write(files, options.out);
  } catch (const std::system_error& error) {
    throw Failure(ExitCode::output, error.what());
  }
} catch (const std::invalid_argument& error) {
  throw Failure(ExitCode::wrongUse, error.what());
}

constexpr auto description =
    "Make a fictitious document of the state Utopia (UTO), signed by an authority of your own, sound or tampered with";

constexpr auto examples =
    "Examples:\n"
    "  tavlo make-passport --authority authority --portrait face.jpg --out passport\n"
    "  tavlo make-passport --authority authority --portrait face.jp2 --out card --format TD1 --code ID \\\n"
    "    --last Łękawska --first \"Zoë Anaïs\" --key RSA-3072 --pss --hash SHA-512\n"
    "  tavlo make-passport --authority authority --portrait face.jpg --out forged --tamper flip=DG1:11\n\n";

}  // namespace

void addMakePassport(CLI::App& app) {
  const auto options = std::make_shared<MakePassportOptions>();
  specimen::Document& document = options->document;
  document.printed.documentNumber = "UT0000001";
  document.printed.lastName = "Specimen";
  document.printed.firstName = "Synthia Alma";

  CLI::App* command = app.add_subcommand("make-passport", description);
  command->add_option("--out", options->out, "Folder for the files; it must be empty or not be there")
      ->required()
      ->type_name("FOLDER");
  command
      ->add_option("--authority", options->authority,
                   "Folder of the authority (CSCA) to sign with, made on the first use; what trusts it needs its "
                   "csca.pem")
      ->required()
      ->type_name("FOLDER");
  command->add_option("--portrait", options->portraits, "JPEG, JP2 or JPEG 2000 code stream; again for more faces")
      ->required()
      ->expected(1)
      ->take_all()
      ->type_name("IMAGE");
  command->add_option("--signature", options->handSignature, "Picture of the holder's signature, for DG7")
      ->type_name("IMAGE");
  using CLI::IsMember;
  const auto text = [&](const char* name, std::string& value, const char* help) {
    return command->add_option(name, value, help)->capture_default_str()->type_name("TEXT");
  };
  text("--format", options->format, "Size of the document; a passport is a TD3")
      ->check(IsMember({"TD1", "TD2", "TD3"}));
  text("--code", document.printed.documentCode, "Document code, one or two letters; for TD1 and TD2 such as ID");
  text("--number", document.printed.documentNumber, "Document number; more than 9 characters for TD1 and TD2 only");
  text("--last", document.printed.lastName, "Last name, in Latin letters");
  text("--first", document.printed.firstName, "First names, in Latin letters");
  text("--nationality", document.printed.nationality, "Nationality, one to three letters");
  text("--birth", options->birth, "Date of birth; without day or month where they are not known");
  text("--gender", options->gender, "F, M or X")->check(IsMember({"F", "M", "X"}));
  text("--issued", options->issued, "Date of issue, when the document is signed");
  text("--expires", options->expires, "Date of expiry");
  text("--optional", document.printed.optionalData, "The issuer's own data in the machine readable zone");
  text("--full-name", document.fullName, "Name for DG11, in any script");
  text("--place-of-birth", document.placeOfBirth, "Place of birth for DG11");
  text("--faces", options->faces, "How DG2 records faces: ISO/IEC 19794-5 or 39794-5")
      ->check(IsMember({"19794", "39794"}));
  command->add_option("--groups", options->groups, "Groups beside DG1, DG2 and DG7, of 3, 11, 12, 14 and 15")
      ->delimiter(',')
      ->capture_default_str()
      ->check(IsMember({3, 11, 12, 14, 15}))
      ->type_name("");
  text("--key", document.signature.key,
       "The signer's key: RSA-2048, -3072 or -4096, P-224, -256, -384 or -521, brainpoolP256r1, ...P384r1 or "
       "...P512r1");
  command->add_flag("--explicit", document.signature.explicitParameters, "Write the curve's parameters out");
  command->add_flag("--pss", document.signature.probabilistic, "Sign with RSA-PSS instead of RSA PKCS #1 v1.5");
  text("--hash", document.signature.hash, "SHA-1, -224, -256, -384 or -512");
  command->add_flag("--key-identifier", document.signature.byKeyIdentifier,
                    "Name the signer by key, instead of by issuer and serial number");
  command->add_option("--tamper", options->tampering, "Make the document odd or unsound, see below; again for more")
      ->expected(1)
      ->take_all()
      ->type_name("HOW");
  command->footer("Ways to tamper:\n" + specimen::Tampering::help() + "\n" + examples + exitCodeHelp());
  command->callback([options] { makePassport(*options); });
}

}  // namespace tavlo::app
