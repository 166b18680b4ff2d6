#include <Foundation/CoreDumps.hpp>
#include <Foundation/Print.hpp>

#include <CLI/CLI.hpp>
#include <exception>

#include "Commands.hpp"
#include "Failure.hpp"
#include "Output.hpp"
#include "Resources.hpp"

namespace tavlo::app {

namespace {

constexpr auto passportText = "Folder with the elementary files of a document, recognised by content";
constexpr auto selfieText = "Picture of the holder's face: PNG, JPEG or JPEG 2000";
constexpr auto trustText = "Trust the certificates in this file, and no others; for the service's own authority";

/// Adds a command with what its help says below the options.
CLI::App* addCommand(CLI::App& app, const std::string& name, const std::string& text, const std::string& examples) {
  CLI::App* command = app.add_subcommand(name, text);
  command->footer("Examples:\n" + examples + "\n" + exitCodeHelp());
  return command;
}

int run(int argc, const char* const* argv) {
  CLI::App app("Inspects identity documents that were read from their chips and has them verified.", "tavlo");
  app.set_version_flag("--version", "tavlo " TAVLO_VERSION);
  app.require_subcommand(1);
  app.footer("\"tavlo COMMAND --help\" tells more.\n\n" + exitCodeHelp());

  InspectOptions inspectOptions;
  CLI::App* command = addCommand(app, "inspect", "Show what a document holds, personal data included",
                                 "  tavlo inspect samples/td3-jpeg\n"
                                 "  tavlo inspect EF_COM.bin DG1.bin --json\n"
                                 "  tavlo inspect samples/td3-jpeg --csca samples/trust\n"
                                 "  tavlo inspect samples/td3-jpeg --portrait portrait.png\n");
  command->add_option("paths", inspectOptions.paths, "One folder, or files that together are one document")
      ->required()
      ->type_name("FOLDER|FILE");
  command->add_flag("--json", inspectOptions.json, "Write the report as JSON");
  command
      ->add_option("--csca", inspectOptions.csca,
                   "Authenticate the groups, trusting the signing authorities whose certificates are there")
      ->type_name("FOLDER");
  command->add_option("--portrait", inspectOptions.portrait, "Write the portrait there as PNG")->type_name("FILE");
  command->add_option("--signature", inspectOptions.signature, "Write the signature there as PNG")->type_name("FILE");
  command->callback([&] { inspect(inspectOptions); });

  RequestOptions requestOptions;
  command = addCommand(app, "request", "Write the request that verify would post; sends nothing",
                       "  tavlo request --passport samples/td3-jpeg --selfie samples/selfie.png --out body.json\n");
  command->add_option("--passport", requestOptions.passport, passportText)->required()->type_name("FOLDER");
  command->add_option("--selfie", requestOptions.selfie, selfieText)->required()->type_name("IMAGE");
  command->add_option("--out", requestOptions.out, "Write to this file instead of standard output")->type_name("FILE");
  command->callback([&] { request(requestOptions); });

  VerifyOptions verifyOptions;
  command = addCommand(app, "verify", "Have a document verified and write the service's answer",
                       "  tavlo verify --passport samples/td3-jpeg --selfie samples/selfie.png --trust ca.pem\n");
  command->add_option("--passport", verifyOptions.passport, passportText)->required()->type_name("FOLDER");
  command->add_option("--selfie", verifyOptions.selfie, selfieText)->required()->type_name("IMAGE");
  command->add_option("--trust", verifyOptions.trust, trustText)->type_name("CA.pem");
  command->add_flag("--show-lines", verifyOptions.showLines,
                    "Let the library's own lines through to standard error, personal data included");
  auto* const save = command->add_flag("--save", verifyOptions.save,
                                       "Keep the document as \"tavlo docs\" does, beside it the certificate that was "
                                       "issued to its key");
  command->add_option("--folder", verifyOptions.folder, "Where --save keeps it, by default in your data folder")
      ->needs(save)
      ->type_name("FOLDER");
  command->callback([&] { verify(verifyOptions); });

  PostOptions postOptions;
  command = addCommand(app, "post", "Post the bytes of a file and write the answer",
                       "  tavlo post --body body.json --url https://localhost:8443/verify --trust ca.pem\n");
  command->add_option("--body", postOptions.body, "What to send, such as a body out of request")
      ->required()
      ->type_name("FILE");
  command->add_option("--url", postOptions.url, "Where to send it, with http or https")->required()->type_name("URL");
  command->add_option("--trust", postOptions.trust, trustText)->type_name("CA.pem");
  command->callback([&] { post(postOptions); });

  addDocs(app);
  addMakePassport(app);

  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return static_cast<int>(app.exit(error) == 0 ? ExitCode::done : ExitCode::wrongUse);
  }
  return static_cast<int>(ExitCode::done);
}

}  // namespace

}  // namespace tavlo::app

int main(int argc, char** argv) {
  using namespace tavlo;
  foundation::forbidCoreDumps();
  try {
    foundation::Bundle::installMain(app::compiledResources());
    foundation::setPrintHandler([](std::string_view) {});  // The library's lines hold personal data.
    return app::run(argc, argv);
  } catch (const app::Failure& failure) {
    app::tell(std::string("tavlo: ") + failure.what());
    return static_cast<int>(failure.code());
  } catch (const std::exception& error) {
    app::tell(std::string("tavlo: ") + error.what());
    return static_cast<int>(app::ExitCode::fault);
  }
}
