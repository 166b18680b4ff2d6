#include <TavloCA/TavloCA.hpp>

#include <Foundation/URLError.hpp>
#include <gtest/gtest.h>

#include "support/Documents.hpp"
#include "support/Printed.hpp"
#include "support/StandIns.hpp"

namespace tavlo {
namespace {

using namespace foundation;

/// What a completion was called with, and how often.
struct Outcome {
  int calls = 0;
  std::optional<Data> data;
  std::exception_ptr error;

  Completion completion() {
    return [this](auto body, auto failure) { ++calls, data = std::move(body), error = std::move(failure); };
  }
};

struct FakeKeyStore final : store::KeyStore {
  enum class Mode { sound, none, throws } mode = Mode::sound;
  std::vector<std::string> aliases;

  std::optional<security::SecKeyPair> createKeypair(std::string_view keyAlias, security::SecKeyType type,
                                                    bool ephemeral) override {
    aliases.emplace_back(keyAlias);
    EXPECT_EQ(type, security::SecKeyType::ellipticCurve);
    EXPECT_FALSE(ephemeral);
    if (mode == Mode::throws) throw std::out_of_range("the store's own");
    if (mode == Mode::none) return std::nullopt;
    const auto key = std::make_shared<test::FakeKey>();
    return security::SecKeyPair{key, key};
  }
};

/// A passport whose number an app computes.
struct OwnPassport : Passport {
  using Passport::Passport;
  [[nodiscard]] std::string documentNumber() const override { return "own/" + Passport::documentNumber(); }
};

class Verify : public testing::Test {
 protected:
  Verify() {
    model_.add(reader::DataGroup::parse(test::com(Data{0x61})));
    model_.add(reader::DataGroup::parse(test::dataGroup1()));
    session_->body = dataOf("{\"answer\":1}");
  }

  std::shared_ptr<test::FakeSession> session_ = std::make_shared<test::FakeSession>();
  std::shared_ptr<FakeKeyStore> keys_ = std::make_shared<FakeKeyStore>();
  StandIn<URLSession> sessionStandIn_{session_};
  StandIn<store::KeyStore> keysStandIn_{keys_};
  test::Printed printed_;
  reader::NFCPassportModel model_;
};

TEST_F(Verify, PostsWhatTheBuilderMakesAndHandsTheAnswerOver) {
  const auto passport = make<OwnPassport>(model_);
  Outcome outcome;
  TavloCA::verify(model_, *passport, {}, outcome.completion());

  EXPECT_EQ(outcome.calls, 1);
  EXPECT_EQ(outcome.data, dataOf("{\"answer\":1}"));
  EXPECT_EQ(outcome.error, nullptr);
  EXPECT_EQ(keys_->aliases, std::vector<std::string>{"own/L898902C3"});
  ASSERT_EQ(session_->requests.size(), 1U);
  const auto& request = session_->requests.front();
  EXPECT_EQ(request.url.absoluteString(), TAVLO_SERVICE_URL "/verify");
  EXPECT_EQ(request.httpMethod, "POST");
  EXPECT_EQ(request.timeoutInterval, std::chrono::seconds(60));

  const auto lines = printed_.lines();
  ASSERT_EQ(lines.size(), 3U) << "the groups, the COM, the body";
  EXPECT_EQ(lines.front(), "[TavloReader.COM, TavloReader.DataGroup1]");
  EXPECT_EQ(lines.back(), textOf(request.httpBody));
  EXPECT_EQ(toJSON(lines.back())->at("signing"), (JSONObject{{"mdlPublicKey", "04ab"}}));

  TavloCA::verify({}, *passport, {}, outcome.completion());
  EXPECT_EQ(session_->requests.size(), 2U) << "a model without groups is posted too";
}

TEST_F(Verify, LocalFailuresEndItOnceWithNothingSent) {
  const auto passport = make<Passport>(model_);
  const std::tuple<FakeKeyStore::Mode, std::string, std::string> rows[] = {
      {FakeKeyStore::Mode::throws, "1", "the store's own"},
      {FakeKeyStore::Mode::none, "1", "CAError: Could not create keypair"},
      {FakeKeyStore::Mode::sound, "\xFF", "CAError: Could not create verification object"}};
  for (const auto& [mode, version, error] : rows) {
    keys_->mode = mode;
    const StandIn<uikit::UIDevice> device(std::make_shared<test::FakeDevice>(version));
    Outcome outcome;
    TavloCA::verify(model_, *passport, {}, outcome.completion());
    EXPECT_EQ(outcome.calls, 1);
    EXPECT_EQ(outcome.data, std::nullopt);
    EXPECT_EQ(localizedDescription(outcome.error), error);

    const auto throwing = [&](const auto&, const auto&) {
      ++outcome.calls;
      throw std::logic_error("in the completion");
    };
    EXPECT_THROW(TavloCA::verify(model_, *passport, {}, throwing), std::logic_error);
    EXPECT_EQ(outcome.calls, 2) << "a completion that throws is not called again";
  }
  EXPECT_TRUE(session_->requests.empty());
  EXPECT_EQ(printed_.lines().back(), "Could not encode jsonData");
}

TEST_F(Verify, PostReportsEachPairOfTheSession) {
  const auto lost = std::make_exception_ptr(URLError(URLError::Code::networkConnectionLost));
  using Lines = std::vector<std::string>;
  const std::tuple<std::optional<Data>, std::exception_ptr, bool, Lines> rows[] = {
      {dataOf("x"), nullptr, true, {}},
      {Data{}, nullptr, true, {}},
      {std::nullopt, lost, false, {"The network connection was lost."}},
      {dataOf("x"), lost, false, {"The network connection was lost."}},
      {std::nullopt, nullptr, false, {"No data"}}};
  for (const auto& [body, error, handsBodyOver, lines] : rows) {
    session_->body = body;
    session_->error = error;
    const test::Printed printed;
    Outcome outcome;
    TavloCA::post(dataOf("body"), "http://example.test/x", outcome.completion());
    EXPECT_EQ(outcome.calls, 1);
    EXPECT_EQ(outcome.data, handsBodyOver ? body : std::nullopt);
    EXPECT_EQ(outcome.error, error);
    EXPECT_EQ(printed.lines(), lines);
  }
  EXPECT_EQ(session_->requests.back().httpBody, dataOf("body"));
}

TEST_F(Verify, PostRefusesWhatIsNoURLAtOnce) {
  for (const char* text : {"", "not a url", "http://h/\r\nX: y", "127.0.0.1:80/x", "http://\xC3\xA5.example/"}) {
    Outcome outcome;
    TavloCA::post({}, text, outcome.completion());
    EXPECT_EQ(outcome.calls, 1) << text;
    EXPECT_EQ(outcome.data, std::nullopt);
    EXPECT_EQ(localizedDescription(outcome.error), "CAError: Empty URL") << text;
  }
  EXPECT_TRUE(session_->requests.empty());
  EXPECT_TRUE(printed_.lines().empty());
}

}  // namespace
}  // namespace tavlo
