#pragma once

#include <Security/SecKey.hpp>
#include <TavloCA/TavloCA.hpp>
#include <TavloReader/DocumentSource.hpp>

#include "support/Documents.hpp"
#include "support/Printed.hpp"

namespace tavlo::test {

/// The request that an app makes of a document and the drawn selfie, with a new key pair.
inline Data requestOf(const reader::NFCPassportModel& document) {
  const Printed silent;
  DataGroups groups;
  for (const auto& [id, group] : document.dataGroupsRead()) groups.push_back(group);
  const auto selfie = uikit::UIImage::decode(foundation::contentsOf(TAVLO_SAMPLES_DIR "/selfie.png"));
  const auto keys = security::generateKeyPair(security::SecKeyType::ellipticCurve);
  return TavloCA::verificationObject(groups, selfie, *keys.publicKey).value();
}

/// A request whose texts want to be markup. In names "<" is a filler; in the number it stays.
inline Data hostileRequest() {
  const auto* zone = R"(P<UTO"><<IMG ONERROR="&#104;IT=3">;<<<<<<<<<"<u>&'<i>6UTO7408122F1204159ZE184226B<<<<<10)";
  const auto* name = "&lt;script&gt;hit=1&lt;/script&gt; \"'><img src=x onerror=\"hit=2\">\u202Egpj\u202C\x07";
  reader::NFCPassportModel document;
  for (const Data& file : {dataGroup1(zone), dataGroup2(foundation::dataOf("no picture")),
                           tlv(0x6B, joined({tlv(0x5C, Data{0x5F, 0x0E}), tlv(0x5F0E, name)}))}) {
    document.add(reader::DataGroup::parse(file));
  }
  const auto* device = R"({"device":{"model":"</pre></details><script>hit=4</script><img src=x onerror='hit=5'>"},)";
  return joined({foundation::dataOf(device), DataView(requestOf(document)).subspan(1)});  // the first "device" counts
}

}  // namespace tavlo::test
