// Web addresses: the first line is a base, the rest a reference to be resolved against it.
#include <Foundation/URL.hpp>

#include "fuzz.hpp"

using tavlo::foundation::URL;

void tavlo::fuzz::run(DataView input) {
  const auto look = [](const std::optional<URL>& url) {
    if (!url) return url;
    require(URL::parse(url->absoluteString()) == url && url->path().size() <= url->percentEncodedPath().size());
    require(url->port().value_or(0) <= 65'536 && url->host().value_or("").size() <= url->absoluteString().size());
    return url;
  };
  within(32 * input.size() + 4096, [&] {
    Input parts{input};
    const auto base = look(URL::parse(parts.text('\n')));
    const auto reference = look(URL::parse(foundation::textOf(parts.rest)));
    const auto resolved = look(base ? URL::parse(foundation::textOf(parts.rest), *base) : std::nullopt);
    if (!resolved) return;
    if (reference->scheme()) return require(resolved == reference);
    require(resolved->scheme() == base->scheme());
    require(resolved->hostAndPort() == (reference->hostAndPort() ? reference : base)->hostAndPort());
    if (base->scheme()) require(URL::parse(resolved->absoluteString(), *base) == resolved);
  });
}
