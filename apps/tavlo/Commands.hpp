#pragma once

#include <optional>
#include <string>
#include <vector>

namespace CLI {
class App;
}

// The commands and their options. Each returns when its work is done and throws Failure when it cannot be.

namespace tavlo::app {

struct InspectOptions {
  std::vector<std::string> paths;
  bool json = false;
  std::optional<std::string> csca;
  std::optional<std::string> portrait;
  std::optional<std::string> signature;
};
/// Writes what a document holds to standard output, whether its groups are authentic if asked, and pictures to files.
void inspect(const InspectOptions& options);

struct RequestOptions {
  std::string passport;
  std::string selfie;
  std::optional<std::string> out;
};
/// Writes the body that `verify` would post; sends nothing.
void request(const RequestOptions& options);

struct VerifyOptions {
  std::string passport;
  std::string selfie;
  std::optional<std::string> trust;
  bool showLines = false;
  bool save = false;
  std::optional<std::string> folder;
};
/// Verifies a passport and writes the service's answer to standard output. With `save` keeps the passport among the
/// documents, and beside it the certificate that was issued to its key.
void verify(const VerifyOptions& options);

struct PostOptions {
  std::string body;
  std::string url;
  std::optional<std::string> trust;
};
/// Posts the bytes of a file and writes the answer to standard output.
void post(const PostOptions& options);

/// Adds the command that makes fictitious documents.
void addMakePassport(CLI::App& app);

/// Adds `tavlo docs` and its commands, which keep documents in a folder.
void addDocs(CLI::App& app);

}  // namespace tavlo::app
