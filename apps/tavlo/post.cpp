#include <TavloCA/TavloCA.hpp>

#include <utility>

#include "Commands.hpp"
#include "Input.hpp"
#include "Outcome.hpp"
#include "Output.hpp"

namespace tavlo::app {

void post(const PostOptions& options) {
  if (options.trust) trustOnly(*options.trust);
  auto body = loadFile(options.body);
  deliver(
      awaitAnswer([&](Completion completion) { TavloCA::post(std::move(body), options.url, std::move(completion)); }));
}

}  // namespace tavlo::app
