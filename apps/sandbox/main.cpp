#include <Foundation/CoreDumps.hpp>
#include <Foundation/Data.hpp>
#include <Foundation/Print.hpp>
#include <TavloReader/PassiveAuthentication.hpp>

#include <pthread.h>

#include <CLI/CLI.hpp>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <optional>
#include <stdexcept>
#include <string>

#include "Authority.hpp"
#include "Certificates.hpp"
#include "HTTPServer.hpp"
#include "Scenario.hpp"
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
  foundation::print("What arrives is shown at https://localhost:" + port + "/ in a browser on this machine.");
  foundation::print("Apps must trust its own certificate authority:");
  foundation::print("  export SSL_CERT_FILE=" + authority.certificate.string());
  foundation::print("Stop it with Ctrl-C.");
}

/// What is wrong with an address to listen at; empty for nothing.
std::string isUsableAddress(const std::string& address) {
  if (!isAddress(address)) return address + " is no IP address";
  // A certificate names addresses that one can connect to.
  if (address == "0.0.0.0" || address == "::") return "name the address at which this machine is reached";
  if (!canListenAt(address)) return address + " is no address of this machine";
  return "";
}

int run(int argc, const char* const* argv, const sigset_t& stopSignals) {
  Server::Settings settings;
  std::string state;
  std::string csca;
  std::string scenario;
  bool listsScenarios = false;
  CLI::App app("A verification service for development. It checks what it receives.", "tavlo-sandbox");
  app.set_version_flag("--version", "tavlo-sandbox " TAVLO_VERSION);
  app.add_option("--port", settings.port, "The port on 127.0.0.1 and ::1; 0 takes a free one")->capture_default_str();
  app.add_option("--csca", csca, "Folder with the certificates of the signing authorities that are trusted")
      ->type_name("FOLDER");
  app.add_option("--state", state,
                 "Where its authorities and the history of keys are kept (default: in the folder of tavlo's data)")
      ->type_name("FOLDER");
  app.add_option("--listen", settings.addresses,
                 "An IP address to listen at beside the loopback ones; its certificate then names it, too")
      ->type_name("ADDRESS")
      ->check(isUsableAddress);
  app.add_option("--scenario", scenario, "What goes wrong with every request, such as status=503")
      ->type_name("NAME[=VALUE]");
  app.add_flag("--list-scenarios", listsScenarios, "Show the scenarios as a table and stop");
  app.footer("Example:\n  tavlo-sandbox --csca samples/trust --state /tmp/sandbox\n\n" + std::string(exitCodeHelp));
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return static_cast<int>(app.exit(error) == 0 ? ExitCode::stopped : ExitCode::wrongUse);
  }

  if (listsScenarios) {
    foundation::print(scenarioTable());
    return static_cast<int>(ExitCode::stopped);
  }
  if (!scenario.empty()) settings.scenario = Scenario::named(scenario);

  Authority authority;
  try {
    if (!csca.empty()) settings.anchors = reader::trustAnchorsIn(csca);
    settings.state = fs::absolute(state.empty() ? foundation::applicationSupportFolder() / "sandbox" : fs::path(state));
    authority = Authority::prepare(settings.state, {.addresses = settings.addresses, .flaw = settings.scenario.flaw});
  } catch (const std::runtime_error& error) {
    throw FolderError(error.what());
  }
  const bool hasAnchors = !settings.anchors.empty();
  std::optional<Server> server;
  try {
    server.emplace(authority, std::move(settings));
  } catch (const PortError&) {
    throw;
  } catch (const std::runtime_error& error) {
    throw FolderError(error.what());
  }
  announce(*server, authority, hasAnchors);

  int signal = 0;
  ::sigwait(&stopSignals, &signal);
  server.reset();
  foundation::print("Stopped.");
  return static_cast<int>(ExitCode::stopped);
}

}  // namespace

}  // namespace tavlo::sandbox

int main(int argc, char** argv) {
  using tavlo::sandbox::ExitCode;
  tavlo::foundation::forbidCoreDumps();
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
  } catch (const tavlo::sandbox::ScenarioError& error) {
    return fail(ExitCode::wrongUse, error);
  } catch (const tavlo::sandbox::FolderError& error) {
    return fail(ExitCode::unusableFiles, error);
  } catch (const std::exception& error) {
    return fail(ExitCode::fault, error);
  }
}
