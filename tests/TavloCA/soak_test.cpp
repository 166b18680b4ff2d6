#include <Foundation/Print.hpp>
#include <Foundation/StandIn.hpp>
#include <Foundation/URLError.hpp>
#include <TavloCA/TavloCA.hpp>
#include <TavloStore/FileKeyStore.hpp>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/prctl.h>
#include <sys/wait.h>

#include <array>
#include <fstream>
#include <future>
#include <iostream>
#include <map>

#include "support/Documents.hpp"
#include "support/RawServer.hpp"
#include "support/TemporaryFolder.hpp"
#include "support/TestCertificate.hpp"

namespace tavlo::test {
namespace {

/// What the service sends for the path with the row's number, what comes of it, and how late in milliseconds.
struct Row {
  std::string answer, outcome;
  int delay = 0;
};

const std::string head = "HTTP/1.1 200 OK\r\n", large(100'000, 'x'), lost = "The network connection was lost.";
const std::array<Row, 8> rows = {{
    {head + "Content-Length: 2\r\n\r\nok", "ok"},
    {head + "Transfer-Encoding: chunked\r\n\r\n2\r\nok\r\n0\r\n\r\n", "ok"},
    {"HTTP/1.1 500 No\r\nContent-Length: 0\r\n\r\n", ""},
    {"HTTP/1.1 307 On\r\nLocation: /0\r\nContent-Length: 0\r\n\r\n", "ok", 20},
    {head + "Content-Length: 100000\r\n\r\n" + large, large},
    {head + "Content-Length: 3\r\n\r\nok", lost},
    {"", lost, 5},
    {"no HTTP at all\r\n\r\n", "cannot parse response"},
}};

/// Starts a service that answers well, slowly and badly and gives its address. It is a process of its own, which ends
/// with this one: what this one holds is the library's. To be called before there is any thread.
std::string startService(const TestCertificate& certificate) {
  std::array<int, 2> pipe{};
  std::string url(100, ' ');
  if (::pipe(pipe.data()) == 0 && ::fork() > 0) {
    url.resize(static_cast<std::size_t>(::read(pipe[0], url.data(), url.size())));
    for (const int end : pipe) ::close(end);
    return url;
  }
  const auto answer = [](RawServer::Connection& connection) {
    for (auto request = connection.read(); request; request = connection.read()) {
      const auto row = static_cast<std::size_t>(request->head.at(6) - '0');  // POST /0
      std::this_thread::sleep_for(std::chrono::milliseconds(rows.at(row).delay));
      if (!connection.send(rows.at(row).answer) || row >= 5) return;
    }
  };
  const auto serve = [&]() noexcept {
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    const auto context = certificate.serverContext();
    const RawServer server(answer, context.get());
    if (::write(pipe[1], server.url().data(), server.url().size()) > 0) ::pause();
  };
  serve();
  ::_exit(1);
}

std::string outcomeOf(const std::optional<foundation::Data>& data, const std::exception_ptr& error) {
  return error ? foundation::localizedDescription(error) : std::string(foundation::textOf(data.value()));
}

/// What this process holds now, memory in KiB. Prints it, too.
std::map<std::string, long> held() {
  std::map<std::string, long> all;
  std::ifstream status("/proc/self/status");
  for (std::string word; status >> word;) {
    if (word == "VmRSS:" || word == "VmHWM:" || word == "Threads:") status >> all[word];
  }
  for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
    ++all[::fcntl(std::stoi(entry.path().filename()), F_GETFD) == 0 ? "Inheritable:" : "Descriptors:"];
  }
  for (const auto& [name, value] : all) std::cout << name << " " << value << ", ";
  return all;
}

/// As many verifications as the variable TAVLO_SOAK says: a thousand at once, then another out of each completion.
TEST(Soak, CompletesEachVerificationOnceAndHoldsNoMoreInTheEnd) {
  const std::size_t count = std::stoul(std::getenv("TAVLO_SOAK") == nullptr ? "2000" : std::getenv("TAVLO_SOAK"));
  const TemporaryFolder folder;
  const TestCertificate certificate("IP:127.0.0.1");
  certificate.writePEM(folder / "trusted.pem");
  ::setenv("SSL_CERT_FILE", (folder / "trusted.pem").c_str(), 1);
  const std::string service = startService(certificate);
  const long inheritable = held()["Inheritable:"] + 2;  // libcurl's own, by which it wakes its thread
  const foundation::StandIn<store::KeyStore> keys(std::make_shared<store::FileKeyStore>(folder / "keys"));
  foundation::setPrintHandler([](std::string_view) {});
  const DataGroups groups = {reader::DataGroup::parse(dataGroup1())};
  const auto selfie = uikit::UIImage::fromPixels(Data(12, 0x80), 2, 2, 6, uikit::PixelFormat::rgb);

  std::vector<std::atomic<int>> completions(count);
  std::atomic<std::size_t> started = 0, ended = 0;
  std::mutex forking;  // a lock of OpenSSL's that a thread holds while its process forks stays taken in the child
  security::SecKeyPair pair;
  const std::function<void()> verifyNext = [&] {
    const std::lock_guard lock(forking);
    const std::size_t number = started++;
    if (number >= count) return;
    // Each pair serves 25 verifications: to read it takes longer than all the rest.
    if (number % 25 == 0) pair = store::Util::createKeypair(std::to_string(number % 1000)).value();
    auto body = TavloCA::verificationObject(groups, selfie, *pair.publicKey);
    const std::size_t row = number % 4 == 0 ? number / 4 % rows.size() : number % 4;  // most of them good
    TavloCA::post(std::move(body).value(), service + std::to_string(row), [&, number, row](auto data, auto error) {
      EXPECT_EQ(outcomeOf(data, error), rows.at(row).outcome);
      ++completions[number];
      verifyNext();
      ++ended;
    });
  };
  // A child verifies, too, and exits with posts of its own under way; every second one from within a completion.
  [[maybe_unused]] const auto child = [&](bool exitsWithin) noexcept {
    ::alarm(60);
    std::promise<int> done;
    for (int i = 0; i < 5; ++i) TavloCA::post({}, service + "3", [](const auto&, const auto&) {});
    TavloCA::post({}, service + "0", [&](auto data, auto error) {
      const int status = outcomeOf(data, error) == "ok" ? 0 : 1;
      exitsWithin ? std::exit(status) : done.set_value(status);
    });
    std::exit(done.get_future().get());
  };
  for (int i = 0; i < 1000; ++i) verifyNext();
  std::map<std::string, long> early, late;
  for (std::size_t part = 1; part <= 10; ++part) {
    while (ended < count * part / 10) std::this_thread::sleep_for(std::chrono::milliseconds(1));
#ifndef TAVLO_SANITIZED  // the sanitizers' own locks do not outlive a fork among threads
    std::unique_lock lock(forking);
    const pid_t process = ::fork();
    if (process == 0) child(part % 2 == 0);
    lock.unlock();
    int status = -1;
    ::waitpid(process, &status, 0);
    EXPECT_EQ(status, 0);
#endif
    (part == 1 ? early : late) = held();
    std::cout << ended << " ended" << std::endl;
  }
  for (const auto& completion : completions) EXPECT_EQ(completion, 1);
  EXPECT_EQ(late["Threads:"], early["Threads:"]);
  EXPECT_LE(late["Descriptors:"], 100);
  EXPECT_LE(late["Inheritable:"], inheritable);
#ifndef TAVLO_SANITIZED  // they have a thread of their own, and keep for a while what was freed
  EXPECT_EQ(late["Threads:"], 3) << "this one and the session's two";
  EXPECT_LE(late["VmRSS:"], early["VmRSS:"] + 8192);
#endif
}

}  // namespace
}  // namespace tavlo::test
