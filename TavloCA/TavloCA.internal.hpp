#pragma once

#include <Foundation/Coding.hpp>
#include <TavloCA/TavloCA.hpp>
#include <TavloCommon/TavloCommon.hpp>
#include <UIKit/UIDevice.hpp>

#include <cstdint>
#include <optional>
#include <string>
#include <tuple>

// The records of a verification request; the names of their members are the keys on the wire. Below them a request in
// an envelope, and records in the shape of the service's answer: declared forms, which nothing uses.

namespace tavlo {

/// One optional value for each elementary file of a document.
template <class Value>
struct PerDataGroup {
  std::optional<Value> COM, DG1, DG2, DG3, DG4, DG5, DG6, DG7, DG8, DG9, DG10, DG11, DG12, DG13, DG14, DG15, DG16, SOD;

  static constexpr auto members() {
    using Record = PerDataGroup;
    using foundation::member;
    return std::tuple{
        member("COM", &Record::COM),   member("DG1", &Record::DG1),   member("DG2", &Record::DG2),
        member("DG3", &Record::DG3),   member("DG4", &Record::DG4),   member("DG5", &Record::DG5),
        member("DG6", &Record::DG6),   member("DG7", &Record::DG7),   member("DG8", &Record::DG8),
        member("DG9", &Record::DG9),   member("DG10", &Record::DG10), member("DG11", &Record::DG11),
        member("DG12", &Record::DG12), member("DG13", &Record::DG13), member("DG14", &Record::DG14),
        member("DG15", &Record::DG15), member("DG16", &Record::DG16), member("SOD", &Record::SOD),
    };
  }
};

/// The data groups as hexadecimal text.
using Document = PerDataGroup<std::string>;

/// A read time for each data group; nothing fills it yet.
using Timing = PerDataGroup<double>;

struct Biometry {
  std::optional<std::string> selfie;  ///< PNG in base64url

  static constexpr auto members() { return std::tuple{foundation::member("selfie", &Biometry::selfie)}; }
};

struct Signing {
  std::optional<std::string> mdlPublicKey;  ///< hexadecimal text

  static constexpr auto members() { return std::tuple{foundation::member("mdlPublicKey", &Signing::mdlPublicKey)}; }
};

/// The device that the request comes from; filled from the running one.
struct Device {
  std::optional<std::string> os = "iOS";
  std::optional<std::string> os_version = uikit::UIDevice::current()->systemVersion();
  std::optional<std::string> manufacturer = "Apple";
  std::optional<std::string> model = common::modelName(*uikit::UIDevice::current());

  static constexpr auto members() {
    using foundation::member;
    return std::tuple{member("os", &Device::os), member("os_version", &Device::os_version),
                      member("manufacturer", &Device::manufacturer), member("model", &Device::model)};
  }
};

struct Performance {
  std::optional<Timing> dgreadtime;
  std::optional<std::string> instrumentation;

  static constexpr auto members() {
    using foundation::member;
    return std::tuple{member("dgreadtime", &Performance::dgreadtime),
                      member("instrumentation", &Performance::instrumentation)};
  }
};

/// The whole request.
struct Verification {
  std::optional<std::string> version;
  Document doc;
  Biometry biometry;
  Signing signing;
  Device device;
  Performance performance;

  static constexpr auto members() {
    using foundation::member;
    return std::tuple{member("version", &Verification::version),   member("doc", &Verification::doc),
                      member("biometry", &Verification::biometry), member("signing", &Verification::signing),
                      member("device", &Verification::device),     member("performance", &Verification::performance)};
  }
};

struct Instrumentation {
  std::optional<std::string> data;

  static constexpr auto members() { return std::tuple{foundation::member("data", &Instrumentation::data)}; }
};

/// A request in an envelope, with what an app tells of the document.
struct APDU {
  std::optional<std::string> type;
  std::optional<std::string> version;
  std::optional<std::string> selfie;
  std::optional<Document> passport;
  std::optional<DocumentMeta> meta;
  std::optional<std::string> csr;

  static constexpr auto members() {
    using foundation::member;
    return std::tuple{member("type", &APDU::type),     member("version", &APDU::version),
                      member("selfie", &APDU::selfie), member("passport", &APDU::passport),
                      member("meta", &APDU::meta),     member("csr", &APDU::csr)};
  }
};

struct Signature {
  std::optional<std::string> cert;
};

struct VerificationStatus {
  std::int64_t biometry;
  std::int64_t certificate;
  std::int64_t integrity;
  std::int64_t registration;
  std::int64_t validity;
};

/// The answer. It reaches an app as bytes, and what the numbers mean is the service's affair, so it has no coded form.
struct VerificationResponse {
  std::optional<std::string> error;
  std::optional<Signature> signing;
  std::int64_t status;
  VerificationStatus verification;
};

}  // namespace tavlo
