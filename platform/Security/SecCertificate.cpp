#include <Security/SecCertificate.hpp>

#include <Foundation/Owned.hpp>
#include <Security/SecKey.hpp>

#include <openssl/err.h>
#include <openssl/pem.h>
#include <openssl/x509.h>

#include <memory>

namespace tavlo::security {

using foundation::Owned;

namespace {

/// Far more than one certificate takes, in bytes.
constexpr std::size_t maximumCertificateSize = std::size_t{64} << 10;

int refusePassword(char* /*buffer*/, int /*size*/, int /*forWriting*/, void* /*user*/) {
  return -1;  // without it, an encrypted text would have the user asked
}

}  // namespace

foundation::Data publicKeyOfCertificate(std::string_view pem) {
  foundation::Data key;
  if (pem.size() <= maximumCertificateSize) {
    const Owned<BIO, BIO_free> text(BIO_new_mem_buf(pem.data(), static_cast<int>(pem.size())));
    const Owned<X509, X509_free> certificate(PEM_read_bio_X509(text.get(), nullptr, refusePassword, nullptr));
    EVP_PKEY* const publicKey = certificate ? X509_get0_pubkey(certificate.get()) : nullptr;
    unsigned char* encoded = nullptr;
    const int size = publicKey != nullptr ? i2d_PublicKey(publicKey, &encoded) : 0;
    const std::unique_ptr<unsigned char, void (*)(unsigned char*)> owned(encoded,
                                                                         [](auto* bytes) { OPENSSL_free(bytes); });
    if (size > 0) key.assign(encoded, encoded + size);
  }
  ERR_clear_error();
  if (key.empty()) throw SecurityError("it is no certificate for a key of a known kind");
  return key;
}

}  // namespace tavlo::security
