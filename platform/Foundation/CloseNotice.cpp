#include <Foundation/CloseNotice.hpp>

#include <openssl/ssl.h>

#include <memory>
#include <new>

namespace tavlo::foundation {
namespace {

using Notice = std::shared_ptr<bool>;

// Each connection carries its notice, which goes away with it.
int noticeIndex() {
  static const int index = SSL_get_ex_new_index(
      0, nullptr, nullptr, nullptr,
      [](void*, void* notice, CRYPTO_EX_DATA*, int, long, void*) { delete static_cast<Notice*>(notice); });
  return index;
}

void onEvent(const SSL* connection, int event, int alert) {
  if (event == SSL_CB_READ_ALERT && (alert & 0xff) == SSL_AD_CLOSE_NOTIFY) {
    **static_cast<Notice*>(SSL_get_ex_data(connection, noticeIndex())) = true;
  }
}

}  // namespace

std::shared_ptr<const bool> watchCloseNotice(CURL* transfer) {
  curl_tlssessioninfo* info = nullptr;
  if (curl_easy_getinfo(transfer, CURLINFO_TLS_SSL_PTR, &info) != CURLE_OK || info->internals == nullptr ||
      info->backend != CURLSSLBACKEND_OPENSSL) {
    return nullptr;
  }
  auto* const connection = static_cast<SSL*>(info->internals);
  auto* notice = static_cast<Notice*>(SSL_get_ex_data(connection, noticeIndex()));
  if (notice == nullptr) {
    auto made = std::make_unique<Notice>(std::make_shared<bool>(false));
    if (SSL_set_ex_data(connection, noticeIndex(), made.get()) != 1) throw std::bad_alloc();
    notice = made.release();  // the connection's from now on
    SSL_set_info_callback(connection, onEvent);
  }
  return *notice;
}

}  // namespace tavlo::foundation
