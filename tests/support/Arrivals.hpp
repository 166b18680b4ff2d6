#pragma once

#include <Foundation/Data.hpp>
#include <Security/SecKey.hpp>
#include <TavloReader/DocumentSource.hpp>
#include <TavloReader/PassiveAuthentication.hpp>

#include <filesystem>
#include <utility>

#include "Arrivals.hpp"
#include "Checks.hpp"
#include "support/Documents.hpp"

namespace tavlo::test {

/// Request `id` with a document and the drawn selfie, checked with the samples' authorities.
inline sandbox::Arrival arrivalOf(std::uint64_t id, reader::NFCPassportModel document, std::string_view body = "{}") {
  const std::filesystem::path samples = TAVLO_SAMPLES_DIR;
  sandbox::Arrival arrival;
  arrival.id = id;
  sandbox::Request& request = arrival.request.emplace();
  request.model = std::move(document);
  request.selfie = {foundation::contentsOf(samples / "selfie.png"), 480, 640};
  request.publicKey = security::generateKeyPair(security::SecKeyType::ellipticCurve).publicKey->data();
  const auto today = std::chrono::year(2026) / std::chrono::July / 1;
  arrival.answer = check(request, reader::trustAnchorsIn(samples / "trust"), today);
  arrival.body = foundation::dataOf(body);
  arrival.bodySize = body.size();
  return arrival;
}
inline sandbox::Arrival arrivalOfSample(std::uint64_t id, const char* sample, std::string_view body = "{}") {
  return arrivalOf(id, reader::readDocument(std::filesystem::path(TAVLO_SAMPLES_DIR) / sample).model, body);
}

/// A document whose texts want to be markup. In names "<" is a filler; in the number it stays.
inline constexpr std::string_view hostileName =
    "&lt;script&gt;hit=1&lt;/script&gt; \"'><img src=x onerror=\"hit=2\">\xE2\x80\xAEgpj\x07";
inline reader::NFCPassportModel hostileDocument() {
  using reader::DataGroup;
  reader::NFCPassportModel document;
  document.add(DataGroup::parse(
      dataGroup1(R"(P<UTO"><<IMG ONERROR="&#104;IT=3">;<<<<<<<<<"<u>&'<i>6UTO7408122F1204159ZE184226B<<<<<10)")));
  document.add(DataGroup::parse(dataGroup2(foundation::dataOf("no picture"))));
  document.add(DataGroup::parse(tlv(0x6B, joined({tlv(0x5C, Data{0x5F, 0x0E}), tlv(0x5F0E, hostileName)}))));
  return document;
}

}  // namespace tavlo::test
