#include <Foundation/Data.hpp>
#include <Foundation/Print.hpp>
#include <TavloReader/PassiveAuthentication.hpp>

#include <pthread.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <stdexcept>
#include <string>

#include "Authority.hpp"
#include "Server.hpp"

namespace tavlo::sandbox {

namespace {

namespace fs = std::filesystem;

enum class ExitCode { stopped = 0, fault = 1, wrongUse = 2, unusableFiles = 3, port = 4 };

constexpr auto exitCodeHelp =
    "Exit status:\n"
    "   0  stopped with Ctrl-C or SIGTERM\n"
    "   1  a fault of the sandbox itself\n"
    "   2  wrong use of an option\n"
    "   3  the folder of --state or --csca cannot be used\n"
    "   4  the port cannot be used\n";

/// Why a folder cannot be used.
class FolderError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

void announce(const Server& server, const Authority& authority, bool hasAnchors) {
  const std::string port = std::to_string(server.port());
  foundation::print("tavlo-sandbox, a verification service for development, listens at https://localhost:" + port +
                    "/verify");
  if (!server.listensOnIPv6()) foundation::print("Notice: this machine has no ::1, so only 127.0.0.1 is served.");
  if (!hasAnchors) {
    foundation::print("Notice: without --csca no document's signer is trusted, so every certificate check fails.");
  }
  foundation::print("Apps must trust its own certificate authority:");
  foundation::print("  export SSL_CERT_FILE=" + authority.certificate.string());
  foundation::print("Stop it with Ctrl-C.");
}

int run(int argc, const char* const* argv, const sigset_t& stopSignals) {
  Server::Settings settings;
  std::string state;
  std::string csca;
  CLI::App app("A verification service for development, on this machine only. It checks what it receives.",
               "tavlo-sandbox");
  app.set_version_flag("--version", "tavlo-sandbox " TAVLO_VERSION);
  app.add_option("--port", settings.port, "The port on 127.0.0.1 and ::1; 0 takes a free one")->capture_default_str();
  app.add_option("--csca", csca, "Folder with the certificates of the signing authorities that are trusted")
      ->type_name("FOLDER");
  app.add_option("--state", state,
                 "Where its own certificate authority is kept (default: in the folder of tavlo's data)")
      ->type_name("FOLDER");
  app.footer("Example:\n  tavlo-sandbox --csca samples/trust --state /tmp/sandbox\n\n" + std::string(exitCodeHelp));
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return static_cast<int>(app.exit(error) == 0 ? ExitCode::stopped : ExitCode::wrongUse);
  }

  Authority authority;
  try {
    if (!csca.empty()) settings.anchors = reader::trustAnchorsIn(csca);
    authority = Authority::prepare(
        fs::absolute(state.empty() ? foundation::applicationSupportFolder() / "sandbox" : fs::path(state)));
  } catch (const std::runtime_error& error) {
    throw FolderError(error.what());
  }
  settings.coloured = ::isatty(STDOUT_FILENO) == 1 && std::getenv("NO_COLOR") == nullptr;
  const bool hasAnchors = !settings.anchors.empty();
  const Server server(authority, std::move(settings));
  announce(server, authority, hasAnchors);

  int signal = 0;
  ::sigwait(&stopSignals, &signal);
  foundation::print("Stopped.");
  return static_cast<int>(ExitCode::stopped);
}

}  // namespace

}  // namespace tavlo::sandbox

int main(int argc, char** argv) {
  using tavlo::sandbox::ExitCode;
  const auto fail = [](ExitCode code, const std::exception& error) {
    std::fprintf(stderr, "tavlo-sandbox: %s\n", error.what());
    return static_cast<int>(code);
  };
  // Blocked before there are other threads, so that every thread leaves them to the one that waits for them.
  sigset_t stopSignals;
  sigemptyset(&stopSignals);
  sigaddset(&stopSignals, SIGINT);
  sigaddset(&stopSignals, SIGTERM);
  ::pthread_sigmask(SIG_BLOCK, &stopSignals, nullptr);
  try {
    return tavlo::sandbox::run(argc, argv, stopSignals);
  } catch (const tavlo::sandbox::PortError& error) {
    return fail(ExitCode::port, error);
  } catch (const tavlo::sandbox::FolderError& error) {
    return fail(ExitCode::unusableFiles, error);
  } catch (const std::exception& error) {
    return fail(ExitCode::fault, error);
  }
}
