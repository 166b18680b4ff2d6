#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "support/Program.hpp"
#include "support/RawServer.hpp"
#include "support/TemporaryFolder.hpp"

// The example that needs a whole service, example-verify, runs with the programs.

namespace tavlo::test {
namespace {

const std::string samples = TAVLO_SAMPLES_DIR;
const std::string document = samples + "/td3-jpeg";
const std::string selfie = samples + "/selfie.png";

class Example : public testing::Test {
 protected:
  /// Runs an example to its end and gives what it wrote to standard output.
  std::string run(std::vector<std::string> command, int status = 0) {
    command.insert(command.begin(), {"XDG_DATA_HOME=" + (folder_ / "home").string(), "http_proxy="});
    Program program;
    EXPECT_EQ(program.run(command), status);
    err_ = program.err();
    return program.out();
  }

  TemporaryFolder folder_;
  std::string err_;
};

TEST_F(Example, documentsShowsWhatItKept) {
  const std::string kept = folder_ / "kept";
  const std::string shown = run({DOCUMENTS_PROGRAM, document, kept});
  EXPECT_EQ(shown,
            "Passport TV0000042, SYNTHIA ALMA SPECIMEN\n  portrait of 413 x 531 pixels\n"
            "Corona Certificate X47568723B, SYNTHIA ALMA SPECIMEN\n  portrait of 413 x 531 pixels\n");
  EXPECT_EQ(run({DOCUMENTS_PROGRAM, "/nowhere", kept}), shown) << "from what was kept alone";
}

TEST_F(Example, hostUsesNothingOfThisMachine) {
  const std::string out = run({HOST_PROGRAM, document, selfie});
  EXPECT_TRUE(out.starts_with("portrait kept as picture-1\nPOST https://")) << out << err_;
  EXPECT_FALSE(std::filesystem::exists(folder_ / "home"));
}

TEST_F(Example, retryPostsTheSameBytesUntilAnswered) {
  RawServer server([&](RawServer::Connection& connection) {
    const bool isFirst = server.connections == 1;
    if (connection.read() && !isFirst) connection.send("HTTP/1.1 200 OK\r\nContent-Length: 4\r\n\r\ndone");
  });
  EXPECT_EQ(run({RETRY_PROGRAM, document, selfie, server.url()}), "done\n") << err_;
  ASSERT_EQ(server.requests().size(), 2U);
  EXPECT_EQ(server.requests()[0].body, server.requests()[1].body);

  EXPECT_EQ(run({RETRY_PROGRAM, document, selfie, "ftp://localhost/"}, 1), "");
  EXPECT_EQ(err_.find("again"), std::string::npos) << "no use in trying again";
}

}  // namespace
}  // namespace tavlo::test
