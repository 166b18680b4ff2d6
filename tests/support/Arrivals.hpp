#pragma once

#include <Security/SecKey.hpp>
#include <TavloReader/DocumentSource.hpp>

#include "Arrivals.hpp"
#include "Checks.hpp"
#include "support/Documents.hpp"

namespace tavlo::test {

/// Request `id` with a document and the drawn selfie, checked with the samples' authorities.
inline sandbox::Arrival arrivalOf(std::uint64_t id, reader::NFCPassportModel document, std::string_view body = "{}") {
  const std::filesystem::path samples = TAVLO_SAMPLES_DIR;
  sandbox::Arrival arrival;
  arrival.id = id;
  arrival.body = foundation::dataOf(body);
  arrival.bodySize = body.size();
  auto& request = arrival.request.emplace();
  request.model = std::move(document);
  request.selfie = {foundation::contentsOf(samples / "selfie.png"), 480, 640};
  request.publicKey = security::generateKeyPair(security::SecKeyType::ellipticCurve).publicKey->data();
  arrival.answer = check(request, reader::trustAnchorsIn(samples / "trust"), std::chrono::year(2026) / 7 / 1);
  return arrival;
}
inline reader::NFCPassportModel sample(const char* name) {
  return reader::readDocument(std::filesystem::path(TAVLO_SAMPLES_DIR) / name).model;
}

/// A document whose texts want to be markup. In names "<" is a filler; in the number it stays.
inline reader::NFCPassportModel hostileDocument() {
  const auto* zone = R"(P<UTO"><<IMG ONERROR="&#104;IT=3">;<<<<<<<<<"<u>&'<i>6UTO7408122F1204159ZE184226B<<<<<10)";
  const auto* name = "&lt;script&gt;hit=1&lt;/script&gt; \"'><img src=x onerror=\"hit=2\">\u202Egpj\u202C\x07";
  reader::NFCPassportModel document;
  for (const Data& file : {dataGroup1(zone), dataGroup2(foundation::dataOf("no picture")),
                           tlv(0x6B, joined({tlv(0x5C, Data{0x5F, 0x0E}), tlv(0x5F0E, name)}))}) {
    document.add(reader::DataGroup::parse(file));
  }
  return document;
}

}  // namespace tavlo::test
