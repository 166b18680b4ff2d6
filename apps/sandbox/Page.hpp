#pragma once

#include <vector>

#include "Arrivals.hpp"
#include "HTTPServer.hpp"

namespace tavlo::sandbox {

/// The routes of the page that shows what arrives: "/" and its stream "/events", for browsers on this machine only.
/// `arrivals` must outlive the server.
[[nodiscard]] std::vector<Route> pageRoutes(Arrivals& arrivals);

}  // namespace tavlo::sandbox
