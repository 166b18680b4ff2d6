// What the sandbox makes of a body: of one that the library builds out of the input's files, or else of the input.
#include <Foundation/JSONEncoder.hpp>
#include <Foundation/JSONValue.hpp>
#include <Foundation/StandIn.hpp>
#include <TavloCA/TavloCA.hpp>
#include <sandbox/Checks.hpp>

#include "fuzz.hpp"
#include "support/StandIns.hpp"

namespace tavlo::fuzz {

using sandbox::Request;

static bool areSame(const Request& one, const Request& other) {
  const auto isSame = [](const auto& a, const auto& b) { return a.second->data() == b.second->data(); };
  return one.publicKey == other.publicKey &&
         std::ranges::equal(one.model.dataGroupsRead(), other.model.dataGroupsRead(), isSame);
}

/// What the library builds is taken, group by group.
static Data bodyOf(DataView input) {
  Request expected{{}, {}, test::FakeKey().data()};
  DataGroups groups;
  const auto read = readFiles({input}).model;
  for (const auto& [id, group] : read.dataGroupsRead()) {
    if (reader::DataGroup::recognise(group->data()) != id) continue;
    groups.push_back(group);
    constexpr std::string_view taken = " COM DG1 DG2 DG7 DG11 DG12 DG14 DG15 SOD ";
    if (taken.find(" " + std::string(name(id)) + " ") != taken.npos) expected.model.add(group);
  }
  const auto selfie = uikit::UIImage::fromPixels(Data{1, 2, 3}, 1, 1, 3, uikit::PixelFormat::rgb);
  auto body = TavloCA::verificationObject(groups, selfie, test::FakeKey()).value();
  require(areSame(Request::decode(body), expected));
  return body;
}

void run(DataView input) {
  static const foundation::StandIn<uikit::UIDevice> device(std::make_shared<test::FakeDevice>("12"));
  within(160 * input.size() + (4 << 20), [&] {
    Data body(input.begin(), input.end());
    const bool isBody = foundation::textOf(input).starts_with("{");
    if (!isBody && !isAccepted<reader::ReaderError>([&] { body = bodyOf(input); })) return;
    Request request;
    if (!isAccepted<sandbox::RefusedBody>([&] { request = Request::decode(body); })) return;
    // Written anew, with the members in another order, it is the same request.
    body = foundation::JSONEncoder().encode(foundation::JSONSerialization::jsonObject(body));
    require(areSame(Request::decode(body), request));
    // No authority is trusted, and the answer is fit for the log.
    const auto answer = sandbox::check(request, {}, std::chrono::year(2026) / 11 / 1);
    require(answer.status != sandbox::Result::passed && isValidUTF8(sandbox::noteOf(answer)));
  });
}

}  // namespace tavlo::fuzz
