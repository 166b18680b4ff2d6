#pragma once

#include <string>
#include <vector>

#include "Arrivals.hpp"
#include "HTTPServer.hpp"

namespace tavlo::sandbox {

/// The whole page, in HTML. It holds no script and no style of its own and loads nothing from elsewhere.
[[nodiscard]] std::string pageOf(const std::vector<Arrivals::Pointer>& arrivals);

/// One arrival on the page: an <article>.
[[nodiscard]] std::string articleOf(const Arrival& arrival);

/// The routes of the page, for browsers on this machine only: "/", its files below "/assets/", one arrival and its
/// pictures below "/arrivals/", and "/events", which tells the number of each arrival. `arrivals` must outlive the
/// server.
[[nodiscard]] std::vector<Route> pageRoutes(Arrivals& arrivals);

}  // namespace tavlo::sandbox
