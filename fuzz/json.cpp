// JSON text, and each record that is read from it.
#include <Foundation/JSONDecoder.hpp>
#include <Foundation/JSONEncoder.hpp>
#include <Foundation/StandIn.hpp>
#include <TavloCA/TavloCA.internal.hpp>

#include "fuzz.hpp"
#include "support/StandIns.hpp"

namespace tavlo::fuzz {

using namespace foundation;

/// What is accepted is, once written, accepted again and written in the same way.
static void tryWith(DataView text, const auto& read) {
  Data written;
  if (!isAccepted<DecodingError>([&] { written = JSONEncoder().encode(read(text)); })) return;
  require(JSONEncoder().encode(read(written)) == written);
}

template <class... Values>
static void tryAsEach(DataView text) {
  (tryWith(text, [](DataView bytes) { return JSONDecoder().decode<Values>(bytes); }), ...);
}

void run(DataView input) {
  // Of the running machine's texts a record needs none.
  static const StandIn<uikit::UIDevice> device(std::make_shared<test::FakeDevice>("12"));
  within(160 * input.size() + (64 << 10), [&] {
    tryWith(input,
            [](DataView text) { return JSONSerialization::jsonObject(text, JSONReadingOptions::fragmentsAllowed); });
    tryAsEach<Verification, APDU, Instrumentation, DocumentMeta, std::shared_ptr<Passport>>(input);
    tryAsEach<std::vector<std::int64_t>, std::vector<double>, std::vector<std::string>>(input);
  });
}

}  // namespace tavlo::fuzz
