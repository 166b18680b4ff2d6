#include <TavloCA/TavloCA.hpp>

#include <Foundation/URLError.hpp>
#include <gtest/gtest.h>

#include "support/Documents.hpp"
#include "support/StandIns.hpp"

namespace tavlo {
namespace {

using namespace foundation;

/// Each call of the completion that `start` is given, as "[data|error]".
std::string callsOf(const std::function<void(Completion)>& start) {
  std::string calls;
  start([&](const std::optional<Data>& data, const std::exception_ptr& error) {
    calls.append("[").append(data ? textOf(*data) : "no data").append("|").append(localizedDescription(error)) += "]";
  });
  return calls;
}

struct FakeKeyStore final : store::KeyStore {
  enum class Mode { sound, none, throws } mode = Mode::sound;
  std::vector<std::string> aliases;

  std::optional<security::SecKeyPair> createKeypair(std::string_view keyAlias, security::SecKeyType type,
                                                    bool ephemeral) override {
    aliases.emplace_back(keyAlias);
    EXPECT_TRUE(type == security::SecKeyType::ellipticCurve && !ephemeral);
    if (mode == Mode::throws) throw std::out_of_range("the store's own");
    if (mode == Mode::none) return std::nullopt;
    return security::SecKeyPair{nullptr, std::make_shared<test::FakeKey>()};
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
    for (const Data& file : {test::com(Data{0x61}), test::dataGroup1()}) model_.add(reader::DataGroup::parse(file));
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
  session_->body = dataOf("answer");
  EXPECT_EQ(callsOf([&](const auto& done) { TavloCA::verify(model_, *passport, {}, done); }), "[answer|]");
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

  TavloCA::verify({}, *passport, {}, [](const auto&...) {});
  EXPECT_EQ(session_->requests.size(), 2U) << "a model without groups is posted too";
}

TEST_F(Verify, LocalFailuresEndItOnceWithNothingSent) {
  const auto passport = make<Passport>(model_);
  const std::tuple<FakeKeyStore::Mode, std::string, std::string> rows[] = {
      {FakeKeyStore::Mode::throws, "1", "[no data|the store's own]"},
      {FakeKeyStore::Mode::none, "1", "[no data|CAError: Could not create keypair]"},
      {FakeKeyStore::Mode::sound, "\xFF", "[no data|CAError: Could not create verification object]"}};
  for (const auto& [mode, version, expected] : rows) {
    keys_->mode = mode;
    const StandIn<uikit::UIDevice> device(std::make_shared<test::FakeDevice>(version));
    EXPECT_EQ(callsOf([&](const auto& done) { TavloCA::verify(model_, *passport, {}, done); }), expected);
    int calls = 0;
    const auto throwing = [&](const auto&...) {
      ++calls;
      throw std::logic_error("in the completion");
    };
    EXPECT_THROW(TavloCA::verify(model_, *passport, {}, throwing), std::logic_error);
    EXPECT_EQ(calls, 1) << "a completion that throws is not called again";
  }
  for (const auto* text : {"", "not a url", "http://h/\r\nX: y", "127.0.0.1:80/x", "http://\xC3\xA5.example/"}) {
    const auto calls = callsOf([=](const auto& done) { TavloCA::post({}, text, done); });
    EXPECT_EQ(calls, "[no data|CAError: Empty URL]") << text;
  }
  EXPECT_TRUE(session_->requests.empty());
  EXPECT_EQ(printed_.lines().back(), "Could not encode jsonData");
}

TEST_F(Verify, PostReportsEachPairOfTheSession) {
  const auto lost = std::make_exception_ptr(URLError(URLError::Code::networkConnectionLost));
  const std::string message = "The network connection was lost.";
  const std::tuple<std::optional<Data>, std::exception_ptr, bool, std::string, std::vector<std::string>> rows[] = {
      {dataOf("x"), nullptr, false, "[x|]", {}},
      {Data{}, nullptr, false, "[|]", {}},
      {std::nullopt, lost, false, "[no data|" + message + "]", {message}},
      {dataOf("x"), lost, false, "[no data|" + message + "]", {message}},
      {std::nullopt, lost, true, "[no data|" + message + "]", {message}},
      {std::nullopt, nullptr, false, "[no data|]", {"No data"}}};
  for (const auto& [body, error, refuses, calls, lines] : rows) {
    std::tie(session_->body, session_->error, session_->refuses) = std::tie(body, error, refuses);
    const test::Printed printed;
    EXPECT_EQ(callsOf([](const auto& done) { TavloCA::post(dataOf("body"), "http://h/x", done); }), calls);
    EXPECT_EQ(printed.lines(), lines);
  }
  EXPECT_EQ(session_->requests.back().httpBody, dataOf("body"));
}

}  // namespace
}  // namespace tavlo
