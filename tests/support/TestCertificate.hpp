#pragma once

#include <openssl/pem.h>
#include <openssl/ssl.h>
#include <openssl/x509v3.h>

#include <cstdio>
#include <memory>
#include <string>
#include <vector>

namespace tavlo::test {

/// A certificate and its key, made on the spot and valid from an hour ago.
struct TestCertificate {
  using Key = std::shared_ptr<EVP_PKEY>;
  /// Extensions beside those that name the keys, by the numbers and in the words of OpenSSL.
  using Extensions = std::vector<std::pair<int, const char*>>;

  /// Over `subjectKey`, signed by `issuer` or else by itself.
  TestCertificate(const char* name, Key subjectKey, const TestCertificate* issuer, Extensions extensions,
                  long secondsLeft = 3600, const EVP_MD* digest = EVP_sha256())
      : key(std::move(subjectKey)) {
    static long serial = 0;
    X509* const made = certificate.get();
    const TestCertificate& signer = issuer == nullptr ? *this : *issuer;
    X509_set_version(made, X509_VERSION_3);
    ASN1_INTEGER_set(X509_get_serialNumber(made), ++serial);
    X509_gmtime_adj(X509_getm_notBefore(made), -3600);
    X509_gmtime_adj(X509_getm_notAfter(made), secondsLeft);
    X509_NAME_add_entry_by_txt(X509_get_subject_name(made), "CN", MBSTRING_ASC,
                               reinterpret_cast<const unsigned char*>(name), -1, -1, 0);
    X509_set_issuer_name(made, X509_get_subject_name(signer.certificate.get()));
    X509_set_pubkey(made, key.get());
    X509V3_CTX context;
    X509V3_set_ctx(&context, signer.certificate.get(), made, nullptr, nullptr, 0);
    extensions.insert(extensions.begin(),
                      {{NID_subject_key_identifier, "hash"}, {NID_authority_key_identifier, "keyid"}});
    for (const auto& [id, value] : extensions) {
      X509_EXTENSION* const extension = X509V3_EXT_conf_nid(nullptr, &context, id, value);
      X509_add_ext(made, extension, -1);
      X509_EXTENSION_free(extension);
    }
    X509_sign(made, signer.key.get(), digest);
  }
  /// For the server `name` ("DNS:..." or "IP:..."), signed by `issuer` or else by itself, when it may sign others too.
  explicit TestCertificate(const char* name, const TestCertificate* issuer = nullptr, long secondsLeft = 3600)
      : TestCertificate(
            name, newKey("P-256"), issuer,
            {{NID_subject_alt_name, name}, {NID_basic_constraints, issuer == nullptr ? "CA:TRUE" : "CA:FALSE"}},
            secondsLeft) {}

  static Key newKey(const char* curve) { return {EVP_EC_gen(curve), EVP_PKEY_free}; }

  /// What a server with this certificate needs.
  [[nodiscard]] std::shared_ptr<SSL_CTX> serverContext(int newestVersion = TLS1_3_VERSION) const {
    std::shared_ptr<SSL_CTX> context(SSL_CTX_new(TLS_server_method()), SSL_CTX_free);
    SSL_CTX_use_certificate(context.get(), certificate.get());
    SSL_CTX_use_PrivateKey(context.get(), key.get());
    SSL_CTX_set_security_level(context.get(), 0);
    SSL_CTX_set_min_proto_version(context.get(), TLS1_VERSION);
    SSL_CTX_set_max_proto_version(context.get(), newestVersion);
    return context;
  }

  /// Writes the certificate as a PEM file.
  void writePEM(const std::string& path) const {
    const std::unique_ptr<FILE, int (*)(FILE*)> file(std::fopen(path.c_str(), "w"), std::fclose);
    PEM_write_X509(file.get(), certificate.get());
  }

  Key key;
  std::shared_ptr<X509> certificate{X509_new(), X509_free};
};

}  // namespace tavlo::test
