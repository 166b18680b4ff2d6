#pragma once

#include <Foundation/Data.hpp>
#include <Foundation/URL.hpp>

#include <chrono>
#include <string>

namespace tavlo::foundation {

/// One HTTP request as plain data. No header can be set: a session adds only those that the protocol needs.
struct URLRequest {
  /// How stored answers are used. There is one policy, and with it the answer to a POST is never stored.
  enum class CachePolicy { useProtocolCachePolicy = 0 };

  URL url;                                                        ///< with a scheme of http or https, and a host
  CachePolicy cachePolicy = CachePolicy::useProtocolCachePolicy;  ///< the only one
  /// In seconds: how long nothing may move, in either direction, before the request fails. Not a limit on its whole
  /// time.
  std::chrono::duration<double> timeoutInterval{60.0};
  /// "GET" or "POST"; the process's own session refuses any other as URLError unsupportedURL.
  std::string httpMethod = "GET";
  /// What a POST sends, unchanged.
  Data httpBody = {};
};

}  // namespace tavlo::foundation
