#include "History.hpp"

#include <openssl/hmac.h>
#include <openssl/rand.h>

#include <algorithm>
#include <stdexcept>
#include <string>
#include <utility>

namespace tavlo::sandbox {

using foundation::Data;
using foundation::DataView;

namespace {

constexpr std::size_t hashSize = 32;
constexpr std::size_t entrySize = 2 * hashSize;
constexpr std::size_t maximumSize = hashSize + History::maximumDocuments * entrySize;

}  // namespace

History::History(const std::filesystem::path& folder) : file_(folder / "history") {
  if (!std::filesystem::exists(file_)) {
    Data secret(hashSize);
    if (RAND_bytes(secret.data(), static_cast<int>(secret.size())) != 1) throw std::runtime_error("no random bytes");
    foundation::writePrivately(file_, secret, foundation::IfExists::fail);
  }
  content_ = foundation::contentsOf(file_, maximumSize);
  if (content_.size() % entrySize != hashSize) {
    throw std::runtime_error("The history in " + file_.string() +
                             " is damaged. Remove the file: documents are then new again.");
  }
}

History::Finding History::record(std::string_view issuingState, std::string_view documentNumber, DataView publicKey) {
  const std::lock_guard lock(mutex_);
  const Data document =
      hash("document", foundation::dataOf(std::string(issuingState) + "<" + std::string(documentNumber)));
  const Data key = hash("key", publicKey);
  for (auto entry = content_.cbegin() + hashSize; entry != content_.cend(); entry += entrySize) {
    if (!std::equal(document.begin(), document.end(), entry)) continue;
    return std::equal(key.begin(), key.end(), entry + hashSize) ? Finding::sameKey : Finding::otherKey;
  }
  Data content = content_;
  if (content.size() == maximumSize) content.erase(content.begin() + hashSize, content.begin() + hashSize + entrySize);
  content.insert(content.end(), document.begin(), document.end());
  content.insert(content.end(), key.begin(), key.end());
  foundation::writePrivately(file_, content);
  content_ = std::move(content);
  return Finding::first;
}

Data History::hash(std::string_view use, DataView bytes) const {
  Data message = foundation::dataOf(use);
  message.push_back(0);
  message.insert(message.end(), bytes.begin(), bytes.end());
  Data result(hashSize);
  if (HMAC(EVP_sha256(), content_.data(), hashSize, message.data(), message.size(), result.data(), nullptr) ==
      nullptr) {
    throw std::runtime_error("a hash could not be made");
  }
  return result;
}

}  // namespace tavlo::sandbox
