#include "Failure.hpp"

#include <array>
#include <string_view>

namespace tavlo::app {

namespace {

struct Row {
  ExitCode code;
  std::string_view meaning;
};

constexpr std::array table{
    Row{ExitCode::done, "done; for verify and post: an answer was received, whatever it says"},
    Row{ExitCode::fault, "a fault of tavlo itself"},
    Row{ExitCode::wrongUse, "wrong use: a command, an option or an address"},
    Row{ExitCode::input, "a document, selfie or other file cannot be read or used"},
    Row{ExitCode::output, "the output cannot be written"},
    Row{ExitCode::keyStore, "no key pair could be found or made for the document"},
    Row{ExitCode::request, "the request could not be built"},
    Row{ExitCode::untrusted, "inspect --csca: the document is not trusted; why is in the report"},
    Row{ExitCode::documents, "the folder of documents: no such document, a damaged one, or no access"},
    Row{ExitCode::noCredential, "verify --save: the answer holds no certificate for the document's key"},
    Row{ExitCode::unreachable, "no such host, nothing listens there, or no network"},
    Row{ExitCode::timeout, "nothing moved for 60 seconds"},
    Row{ExitCode::tls, "no secure connection, or a certificate that is not trusted"},
    Row{ExitCode::badAnswer, "the connection was lost, or the answer is none of HTTP"},
    Row{ExitCode::network, "any other error of the network layer"},
    Row{ExitCode::noOutcome, "the network layer gave neither an answer nor an error"},
};

}  // namespace

std::string exitCodeHelp() {
  std::string text = "Exit status:\n";
  for (const auto& [code, meaning] : table) {
    const std::string number = std::to_string(static_cast<int>(code));
    text.append(4 - number.size(), ' ').append(number).append("  ").append(meaning).append("\n");
  }
  return text;
}

}  // namespace tavlo::app
