#include "support/Program.hpp"
#include "support/RawServer.hpp"

// The example that needs a whole service, example-verify, runs with the programs.

namespace tavlo::test {
namespace {

const std::string samples = TAVLO_SAMPLES_DIR;
const std::string document = samples + "/td3-jpeg";
const std::string selfie = samples + "/selfie.png";

using Example = ProgramTest;

TEST_F(Example, documentsShowsWhatItKept) {
  for (const std::string& from : {document, std::string("/nowhere")}) {  // then from what was kept alone
    EXPECT_EQ(run({DOCUMENTS_PROGRAM, from, "@kept"}), 0) << err_;
    EXPECT_EQ(out_,
              "Passport TV0000042, SYNTHIA ALMA SPECIMEN\n  portrait of 413 x 531 pixels\n"
              "Corona Certificate X47568723B, SYNTHIA ALMA SPECIMEN\n  portrait of 413 x 531 pixels\n");
  }
}

TEST_F(Example, hostUsesNothingOfThisMachine) {
  EXPECT_EQ(run({HOST_PROGRAM, document, selfie}), 0) << err_;
  EXPECT_TRUE(out_.starts_with("portrait kept as picture-1\nPOST https://")) << out_;
  EXPECT_FALSE(std::filesystem::exists(folder_ / "home"));
}

TEST_F(Example, retryPostsTheSameBytesUntilAnswered) {
  RawServer server([&](RawServer::Connection& connection) {
    const bool isFirst = server.connections == 1;
    if (connection.read() && !isFirst) connection.send("HTTP/1.1 200 OK\r\nContent-Length: 4\r\n\r\ndone");
  });
  EXPECT_EQ(run({RETRY_PROGRAM, document, selfie, server.url()}), 0) << err_;
  EXPECT_EQ(out_, "done\n");
  ASSERT_EQ(server.requests().size(), 2U);
  EXPECT_EQ(server.requests()[0].body, server.requests()[1].body);

  EXPECT_EQ(run({REQUEST_PROGRAM, document, "TV0000042", selfie, server.url()}), 0) << err_;
  EXPECT_EQ(out_, "done\n");
  EXPECT_EQ(server.requests().at(2).body, server.requests()[0].body) << "C makes the same request";

  EXPECT_EQ(run({RETRY_PROGRAM, document, selfie, "ftp://localhost/"}), 1);
  EXPECT_EQ(err_.find("again"), std::string::npos) << "no use in trying again";
}

}  // namespace
}  // namespace tavlo::test
