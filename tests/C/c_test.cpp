#include <gtest/gtest.h>
#include <tavlo.h>

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include "support/TemporaryFolder.hpp"

namespace {

template <class T>
std::unique_ptr<T, void (*)(T*)> owned(T* made, void (*free)(T*)) {
  return {made, free};
}

/// An answer, or the kind of an error and its code.
void note(void* outcomes, const uint8_t* answer, size_t length, const tavlo_error* error) {
  const auto failure = std::to_string(tavlo_error_kind_of(error)) + "/" + std::to_string(tavlo_error_code(error));
  static_cast<std::vector<std::string>*>(outcomes)->push_back(answer != nullptr ? std::string(answer, answer + length)
                                                                                : failure);
}

TEST(C, verifiesWithWhatTheHostBringsAndRefusesWhatIsUnsound) {
  const tavlo::test::TemporaryFolder folder;
  const uint8_t bytes[12] = {'r', 'e', 'd'};
  ASSERT_TRUE(tavlo_silence(nullptr) && tavlo_set_folder((folder / "app").c_str(), nullptr));
  const auto model = owned(tavlo_model_read_folder(TAVLO_SAMPLES_DIR "/td3-jpeg", nullptr), tavlo_model_free);
  const auto selfie = owned(tavlo_image_from_pixels(bytes, 12, 2, 2, 6, 3, nullptr), tavlo_image_free);
  const auto passport = owned(tavlo_passport_create(model.get(), nullptr), tavlo_document_free);
  const auto key = owned(tavlo_public_key("other", nullptr), tavlo_data_free);
  const auto own = owned(tavlo_model_public_key(model.get(), nullptr), tavlo_data_free);
  const auto named = owned(tavlo_public_key("TV0000042", nullptr), tavlo_data_free);
  EXPECT_TRUE(std::equal(tavlo_data_bytes(own.get()), tavlo_data_bytes(own.get()) + 65, tavlo_data_bytes(named.get())));

  std::vector<tavlo_exchange*> exchanges;
  std::vector<std::string> outcomes;
  const tavlo_session session = [](void* to, tavlo_exchange* exchange) {
    static_cast<std::vector<tavlo_exchange*>*>(to)->push_back(exchange);
  };
  const tavlo_key_source source = [](void* from, const char* number, uint8_t* to) {
    std::copy_n(tavlo_data_bytes(static_cast<tavlo_data*>(from)), 65, to);
    return std::string(number) == "TV0000042" ? size_t{65} : 0;
  };
  ASSERT_TRUE(tavlo_set_session(session, &exchanges, nullptr) && tavlo_set_key_source(source, key.get(), nullptr));
  for (int i = 0; i < 3; ++i) tavlo_verify(model.get(), passport.get(), selfie.get(), note, &outcomes);
  tavlo_exchange_answer(exchanges.at(0), 500, bytes, 3);
  tavlo_exchange_answer(exchanges.at(1), 200, nullptr, 0);
  tavlo_exchange_fail(exchanges.at(2), TAVLO_NETWORK_TIMED_OUT);
  tavlo_verify(model.get(), nullptr, selfie.get(), note, &outcomes);
  tavlo_post(bytes, 3, "", note, &outcomes);
  EXPECT_EQ(outcomes, (std::vector<std::string>{"red", "", "3/-1001", "1/0", "2/0"}));

  tavlo_error* error = nullptr;
  const auto kind = [&error](const void* made) {
    const auto free = owned(error, tavlo_error_free);
    return made == nullptr ? tavlo_error_kind_of(error) : TAVLO_ERROR_OTHER;
  };
  EXPECT_EQ(kind(tavlo_image_decode(bytes, SIZE_MAX, &error)), TAVLO_ERROR_ARGUMENT);
  EXPECT_EQ(kind(tavlo_image_decode(bytes, 12, &error)), TAVLO_ERROR_IMAGE);
  EXPECT_EQ(kind(tavlo_passport_from_json(bytes, 12, &error)), TAVLO_ERROR_JSON);
  EXPECT_EQ(kind(tavlo_build(model.get(), selfie.get(), bytes, 12, &error)), TAVLO_ERROR_KEY);
  EXPECT_EQ(kind(tavlo_model_read_folder(TAVLO_SAMPLES_DIR "/dg11-truncated", &error)), TAVLO_ERROR_DOCUMENT);
}

}  // namespace
