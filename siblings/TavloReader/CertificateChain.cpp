#include <TavloReader/CertificateChain.internal.hpp>

#include <Foundation/UTF8.hpp>

#include <openssl/pem.h>
#include <openssl/x509_vfy.h>
#include <openssl/x509v3.h>

#include <algorithm>
#include <array>
#include <iterator>
#include <limits>
#include <new>
#include <string>
#include <system_error>
#include <utility>

namespace tavlo::reader {

using foundation::Data;

namespace {

using Result = AuthenticationStep::Result;

/// The certificates of one trust anchor: one in DER, or one or more in PEM; none when it is neither.
std::vector<Certificate> readAnchor(const Data& encoded) {
  constexpr std::size_t maximumSize = std::size_t{16} << 20;  // a whole world's authorities take one tenth of it
  const CleanErrorQueue clean;
  std::vector<Certificate> certificates;
  if (encoded.empty() || encoded.size() > maximumSize) return certificates;
  const std::uint8_t* position = encoded.data();
  if (Certificate certificate{d2i_X509(nullptr, &position, static_cast<long>(encoded.size()))}) {
    certificates.push_back(std::move(certificate));
    return certificates;
  }
  const Owned<BIO, BIO_free> text(BIO_new_mem_buf(encoded.data(), static_cast<int>(encoded.size())));
  std::array<char, 1> noPassword{};  // without one, an encrypted file would have the user asked for it
  while (Certificate certificate{PEM_read_bio_X509(text.get(), nullptr, nullptr, noPassword.data())}) {
    certificates.push_back(std::move(certificate));
  }
  const bool readToTheEnd = ERR_GET_REASON(ERR_peek_last_error()) == PEM_R_NO_START_LINE;
  if (!readToTheEnd) certificates.clear();
  return certificates;
}

/// When all certificates of a path are valid, both ends included.
struct Period {
  std::time_t from = std::numeric_limits<std::time_t>::min();
  std::time_t until = std::numeric_limits<std::time_t>::max();

  [[nodiscard]] bool contains(std::time_t time) const { return from <= time && time <= until; }
  /// A malformed time leaves nothing.
  void narrow(const X509* certificate) {
    from = std::max(from, secondsOf(X509_get0_notBefore(certificate)).value_or(Period().until));
    until = std::min(until, secondsOf(X509_get0_notAfter(certificate)).value_or(Period().from));
  }
};

constexpr int issuerUnknown = X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT_LOCALLY;

/// What came of looking for a path from the signer to an anchor.
struct Path {
  int code = issuerUnknown;  ///< the C library's, X509_V_OK when there is one
  Period validity;
};

/// Whether a certificate says that it is self-signed; the signature is not looked at.
bool isSelfSigned(const Certificate& certificate) {
  return X509_self_signed(certificate.get(), 0) == 1;
}

/// Whether a certificate is of the profile of document signers (ICAO Doc 9303-12, 7.1). Early ones state no key usage;
/// an extended one belongs to certificates for other ends, such as signing master lists.
bool maySignDocuments(X509* signer) {
  return (X509_get_extension_flags(signer) & (EXFLAG_INVALID | EXFLAG_CA | EXFLAG_XKUSAGE)) == 0 &&
         (X509_get_key_usage(signer) & KU_DIGITAL_SIGNATURE) != 0;
}

/// The C library's code for why there is no path, one for all the ways in which the issuer is none that is known.
int reasonOf(int code) {
  switch (code) {
    case X509_V_OK:
      return X509_V_ERR_UNSPECIFIED;
    case X509_V_ERR_DEPTH_ZERO_SELF_SIGNED_CERT:
    case X509_V_ERR_SELF_SIGNED_CERT_IN_CHAIN:
    case X509_V_ERR_CERT_SIGNATURE_FAILURE:  // another authority of the same name
      return issuerUnknown;
    default:
      return code;
  }
}

/// Looks for a path to this one anchor that may lead over `links`. The time is left to the caller.
Path findPath(X509* anchor, STACK_OF(X509) * links, X509* signer) {
  constexpr int maximumLinks = 8;
  const Owned<X509_STORE, X509_STORE_free> store(X509_STORE_new());
  const Owned<X509_STORE_CTX, X509_STORE_CTX_free> context(X509_STORE_CTX_new());
  if (!store || !context || X509_STORE_add_cert(store.get(), anchor) != 1 ||
      X509_STORE_CTX_init(context.get(), store.get(), signer, links) != 1) {
    throw std::bad_alloc();
  }
  X509_STORE_CTX_set_flags(context.get(), X509_V_FLAG_NO_CHECK_TIME);
  X509_STORE_CTX_set_depth(context.get(), maximumLinks);
  // Many states write out the parameters of their curves, which the C library refuses unless told otherwise.
  X509_STORE_CTX_set_verify_cb(context.get(), [](int passed, X509_STORE_CTX* current) {
    return passed == 1 || X509_STORE_CTX_get_error(current) == X509_V_ERR_EC_KEY_EXPLICIT_PARAMS ? 1 : 0;
  });
  Path path;
  if (X509_verify_cert(context.get()) != 1) {
    path.code = reasonOf(X509_STORE_CTX_get_error(context.get()));
    // An issuer that may not sign is passed over as if it were not there.
    const bool isBarred = X509_check_issued(anchor, signer) == X509_V_ERR_KEYUSAGE_NO_CERTSIGN;
    if (path.code == issuerUnknown && isBarred) path.code = X509_V_ERR_INVALID_CA;
    return path;
  }
  const STACK_OF(X509)* const certificates = X509_STORE_CTX_get0_chain(context.get());
  const int anchorIndex = sk_X509_num(certificates) - 1;
  const bool isVouchedFor = anchorIndex > 0;  // and no anchor itself
  if (!isVouchedFor || X509_self_signed(anchor, 1) != 1) return path;
  path.code = X509_V_OK;
  for (int i = 0; i <= anchorIndex; ++i) {
    X509* const certificate = sk_X509_value(certificates, i);
    int digest = NID_undef;
    X509_get_signature_info(certificate, &digest, nullptr, nullptr, nullptr);
    if (i < anchorIndex && acceptedDigest(digest) == nullptr) path.code = X509_V_ERR_CA_MD_TOO_WEAK;
    path.validity.narrow(certificate);
  }
  return path;
}

/// Looks for a path to any anchor, best for one that was valid at `time`. Self-signed certificates among the anchors
/// are trusted; the others, and those beside the signer's, may only link.
Path findBestPath(const SecurityObject& object, const std::vector<Certificate>& anchors, std::time_t time) {
  const auto freeStack = [](STACK_OF(X509) * stack) { sk_X509_free(stack); };
  const std::unique_ptr<STACK_OF(X509), decltype(freeStack)> links(sk_X509_new_null(), freeStack);
  if (!links) throw std::bad_alloc();
  for (const auto* certificates : {&anchors, &object.certificates}) {
    for (const Certificate& certificate : *certificates) {
      if (!isSelfSigned(certificate) && sk_X509_push(links.get(), certificate.get()) == 0) throw std::bad_alloc();
    }
  }
  Path best;
  for (const Certificate& anchor : anchors) {  // one at a time: a state's successive authorities bear the same name
    if (!isSelfSigned(anchor)) continue;
    const Path path = findPath(anchor.get(), links.get(), object.signer);
    if (path.code == X509_V_OK && path.validity.contains(time)) return path;
    if (path.code == X509_V_OK || (path.code != issuerUnknown && best.code != X509_V_OK)) best = path;
  }
  return best;
}

AuthenticationStep chainStep(X509* signer, const Path& path, bool anyAnchors) {
  const auto failed = [](const char* reason, std::string text) {
    return AuthenticationStep{"chain", Result::failed, reason, std::move(text)};
  };
  if (!maySignDocuments(signer)) return failed("signer_not_allowed", "The signer may not sign documents.");
  if (!anyAnchors) return failed("no_trust_anchors", "There is no trusted authority to check the signer with.");
  switch (path.code) {
    case X509_V_OK:
      return {"chain", Result::passed, "trusted", "A trusted authority vouches for the signer."};
    case issuerUnknown:
      return failed("issuer_unknown", "The document signer's certificate comes from no trusted authority.");
    case X509_V_ERR_INVALID_CA:
      return failed("issuer_not_allowed", "The issuer of a certificate may not issue certificates.");
    case X509_V_ERR_CA_MD_TOO_WEAK:
      return failed("algorithm_refused", "The algorithm by which a certificate was signed is not accepted.");
    default:
      return failed("refused", std::string("The document signer's certificate is refused: ") +
                                   X509_verify_cert_error_string(path.code) + ".");
  }
}

}  // namespace

std::vector<Certificate> readAnchors(const TrustAnchors& anchors) {
  std::vector<Certificate> all;
  for (std::size_t i = 0; i < anchors.size(); ++i) {
    auto certificates = readAnchor(anchors[i]);
    if (certificates.empty()) throw ReaderError("Trust anchor " + std::to_string(i + 1) + " is no certificate");
    std::ranges::move(certificates, std::back_inserter(all));
  }
  return all;
}

TrustAnchors trustAnchorsIn(const std::filesystem::path& folder) {
  std::size_t room = std::size_t{64} << 20;
  TrustAnchors anchors;
  std::error_code error;
  std::filesystem::directory_iterator entries(folder, error);
  if (error) throw std::system_error(error, "cannot read the folder " + foundation::makeValidUTF8(folder.string()));
  for (const auto& entry : entries) {
    const std::filesystem::path& file = entry.path();
    if (!entry.is_regular_file() || file.filename().native().starts_with('.')) continue;
    anchors.push_back(foundation::contentsOf(file, room));
    room -= anchors.back().size();
    if (readAnchor(anchors.back()).empty()) {
      throw ReaderError(foundation::makeValidUTF8(file.string()) +
                        " is no certificate in PEM or DER: move it out of the folder");
    }
  }
  if (anchors.empty()) throw ReaderError("There is no certificate in " + foundation::makeValidUTF8(folder.string()));
  return anchors;
}

std::vector<AuthenticationStep> verifyChain(const SecurityObject& object, const std::vector<Certificate>& anchors,
                                            std::time_t now) {
  const auto stated = signingTime(object);
  const auto time = stated ? stated : secondsOf(X509_get0_notBefore(object.signer));
  const Path path = findBestPath(object, anchors, time.value_or(now));
  std::vector<AuthenticationStep> steps = {chainStep(object.signer, path, std::ranges::any_of(anchors, isSelfSigned))};
  if (path.code != X509_V_OK) {
    steps.push_back({"validity", Result::notChecked, "no_chain", "There is no chain of certificates to check."});
    steps.push_back({"validity_today", Result::notChecked, "no_chain", steps.back().text, false});
    return steps;
  }

  if (!time || !path.validity.contains(*time)) {
    steps.push_back({"validity", Result::failed, "outside_validity",
                     "A certificate behind the document was not valid when it was signed."});
  } else if (!stated) {
    steps.push_back({"validity", Result::passed, "time_not_stated",
                     "No signing time is stated; the certificates were valid when the signer's own became so."});
  } else {
    steps.push_back({"validity", Result::passed, "valid", "The certificates were valid when the document was signed."});
  }

  AuthenticationStep today{"validity_today", Result::passed, "valid", "The certificates are valid today.", false};
  if (now > path.validity.until) {
    today = {today.name, Result::failed, "expired", "A certificate has run out: documents outlive them.", false};
  } else if (now < path.validity.from) {
    today = {today.name, Result::failed, "not_yet_valid", "A certificate is not valid yet, by this clock.", false};
  }
  steps.push_back(std::move(today));
  return steps;
}

}  // namespace tavlo::reader
