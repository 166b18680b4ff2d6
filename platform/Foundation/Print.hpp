#pragma once

#include <functional>
#include <string_view>

namespace tavlo::foundation {

/// Takes one console line, without its line end. May be called from several threads at once; must not throw.
using PrintHandler = std::function<void(std::string_view line)>;

/// Writes `line` and a line end to standard output in one piece, or gives the line to the handler in force.
void print(std::string_view line);

/// Routes console lines to `handler` from now on; an empty handler brings standard output back. Gives back the previous
/// one. The lines hold personal data: `setPrintHandler([](std::string_view) {})` silences them all.
PrintHandler setPrintHandler(PrintHandler handler);

}  // namespace tavlo::foundation
