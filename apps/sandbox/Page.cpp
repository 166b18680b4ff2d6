#include "Page.hpp"

#include <TavloReader/DataGroups.hpp>
#include <UIKit/UIImage.hpp>

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdio>
#include <ctime>
#include <functional>
#include <optional>
#include <tuple>
#include <utility>

#include "Markup.hpp"
#include "PageResources.hpp"

namespace tavlo::sandbox {

using foundation::Data;
using foundation::DataView;
using uikit::UIImage;

namespace {

constexpr std::size_t maximumPictureSide = 512;  // pixels

std::string resource(std::string_view name) {
  static const auto bundle = pageResources();
  return std::string(foundation::textOf(bundle->resource(name).value()));
}

// ---- One arrival ----

std::string_view wordFor(Result result) {
  return result == Result::passed ? "Passed" : result == Result::failed ? "Failed" : "Not checked";
}

std::string iconFor(Result result) {
  const auto* const path = result == Result::passed   ? "M3 8.5l3.5 3.5L13 4.5"
                           : result == Result::failed ? "M4 4l8 8M12 4l-8 8"
                                                      : "M3.5 8h9";
  return R"(<svg class="icon" viewBox="0 0 16 16" aria-hidden="true"><path d=")" + std::string(path) + R"("/></svg>)";
}

std::string fact(std::string_view label, const std::string& markup, std::string_view kind = "") {
  return "    <div" + (kind.empty() ? "" : " class=\"" + std::string(kind) + "\"") + "><dt>" + std::string(label) +
         "</dt><dd>" + markup + "</dd></div>\n";
}

/// What a stranger wrote, in whatever direction it is written.
std::string printed(std::string_view text) {
  return text.empty() ? "–" : "<bdi>" + markupOf(text) + "</bdi>";
}

/// YYMMDD as YY-MM-DD.
std::string dateText(std::string date) {
  if (date.size() == 6) date.insert(4, "-").insert(2, "-");
  return date;
}

std::string sizeText(std::size_t bytes) {
  const auto kilobytes = static_cast<double>(bytes) / 1000;
  std::array<char, 32> text{};
  std::snprintf(text.data(), text.size(), kilobytes < 1000 ? "%.1f kB" : "%.1f MB",
                kilobytes < 1000 ? kilobytes : kilobytes / 1000);
  return bytes < 1000 ? std::to_string(bytes) + " bytes" : text.data();
}

std::string durationText(std::chrono::duration<double, std::milli> time) {
  std::array<char, 32> text{};
  std::snprintf(text.data(), text.size(), "%.*f ms", time.count() < 10 ? 1 : 0, time.count());
  return text.data();
}

std::string timeText(std::chrono::system_clock::time_point time, const char* format) {
  const std::time_t seconds = std::chrono::system_clock::to_time_t(time);
  std::tm parts{};
  ::gmtime_r(&seconds, &parts);
  std::array<char, 32> text{};
  std::strftime(text.data(), text.size(), format, &parts);
  return text.data();
}

std::string figure(const Arrival& arrival, bool isThere, const std::string& name, const std::string& caption) {
  return "    <figure>" +
         (isThere ? "<img src=\"/arrivals/" + std::to_string(arrival.id) + "/" + name + R"(.png" alt=")" + caption +
                        R"(" loading="lazy">)"
                  : R"(<p class="none">not sent</p>)") +
         "<figcaption>" + caption + "</figcaption></figure>\n";
}

std::string documentOf(const Arrival& arrival) {
  const Request& request = *arrival.request;
  const auto* portrait = request.model.find<reader::DataGroup2>();
  std::string html = "  <div class=\"document\">\n  <div class=\"faces\">\n" +
                     figure(arrival, portrait != nullptr, "portrait", "Portrait, from DG2") +
                     figure(arrival, request.selfie.has_value(), "selfie", "Selfie") +
                     "  </div>\n  <dl class=\"printed\">\n";
  if (const auto* group = request.model.find<reader::DataGroup1>()) {
    const reader::MRZ& mrz = group->mrz();
    html += fact("Last name", printed(mrz.lastName), "wide") + fact("First name", printed(mrz.firstName), "wide");
    if (const auto* more = request.model.find<reader::DataGroup11>()) {
      const auto name = std::ranges::find(more->items(), "Full name", &reader::TextDataGroup::Item::label);
      if (name != more->items().end()) html += fact("Full name, from DG11", printed(name->text), "wide");
    }
    html += fact("Number", printed(mrz.documentNumber)) +
            fact("Document", printed(mrz.documentCode + ", " + std::string(reader::name(mrz.format)))) +
            fact("Issued by", printed(mrz.issuingState)) + fact("Nationality", printed(mrz.nationality)) +
            fact("Birth, YY-MM-DD", printed(dateText(mrz.dateOfBirth))) +
            fact("Expiry, YY-MM-DD", printed(dateText(mrz.dateOfExpiry))) + fact("Sex", printed(mrz.gender));
  } else {
    html += fact("Printed data", "DG1 was not sent", "wide");
  }
  return html + "  </dl>\n  </div>\n";
}

/// The checks of an answer in the order in which a person asks for them.
constexpr std::array<std::tuple<std::string_view, std::string_view, Result VerificationStatus::*>, 5> checks = {{
    {"certificate", "Signed by a trusted state", &VerificationStatus::certificate},
    {"integrity", "Data as they were signed", &VerificationStatus::integrity},
    {"validity", "Not expired", &VerificationStatus::validity},
    {"biometry", "Selfie is a picture", &VerificationStatus::biometry},
    {"registration", "Public key", &VerificationStatus::registration},
}};

std::string checksOf(const Answer& answer) {
  std::string html = "  <ul class=\"checks\">\n";
  for (const auto& [check, label, member] : checks) {
    const Result result = answer.verification.*member;
    html += "  <li class=\"" + std::string(name(result)) + "\"><div><h3>" + std::string(label) +
            "</h3><span class=\"result\">" + iconFor(result) + std::string(wordFor(result)) +
            "</span></div>\n    <ul class=\"reasons\">\n";
    for (const Reason& reason : answer.reasons) {
      if (reason.check != check) continue;
      html += "    <li class=\"" + std::string(name(reason.result)) + "\">" + iconFor(reason.result) +
              "<span><span class=\"unseen\">" + std::string(wordFor(reason.result)) + ": </span>" +
              markupOf(reason.text) + " <code>" + markupOf(reason.reason) + "</code></span></li>\n";
    }
    html += "    </ul></li>\n";
  }
  return html + "  </ul>\n";
}

/// What there is to say in one sentence.
std::string summaryOf(const Answer& answer) {
  if (answer.error) return "The request is not as it should be: " + markupOf(*answer.error);
  if (answer.status == Result::passed) {
    return std::string("Every check passed") +
           (answer.signing ? ", and a certificate was issued for the public key." : ".");
  }
  std::string labels;
  for (const auto& [check, label, member] : checks) {
    if (answer.verification.*member == answer.status) labels += (labels.empty() ? "" : ", ") + std::string(check);
  }
  return (answer.status == Result::failed ? "Did not pass: " : "Nothing failed, but not everything was checked: ") +
         labels + ".";
}

// ---- Pictures ----

/// The picture at the size at which it is shown, so that a camera's millions of pixels stay here. Each pixel becomes
/// the average of those in its place.
UIImage reduced(const UIImage& image) {
  const std::size_t side = std::max(image.width(), image.height());
  if (side <= maximumPictureSide) return image;
  const auto scaled = [&](std::size_t length) { return std::max<std::size_t>(length * maximumPictureSide / side, 1); };
  const std::size_t width = scaled(image.width()), height = scaled(image.height()), channels = image.channels();
  const DataView pixels = image.pixels();
  const bool isGrey = channels < 3, hasAlpha = channels == 4;
  Data result;
  for (std::size_t y = 0; y < height; ++y) {
    const std::size_t top = y * image.height() / height, bottom = (y + 1) * image.height() / height;
    for (std::size_t x = 0; x < width; ++x) {
      const std::size_t left = x * image.width() / width, right = (x + 1) * image.width() / width;
      for (std::size_t channel = 0; channel < (hasAlpha ? 4 : 3); ++channel) {
        std::size_t sum = 0, count = 0;
        for (std::size_t row = top; row < bottom; ++row) {
          for (std::size_t column = left; column < right; ++column, ++count) {
            sum += pixels[(row * image.width() + column) * channels + (isGrey ? 0 : channel)];
          }
        }
        result.push_back(static_cast<std::uint8_t>(sum / std::max<std::size_t>(count, 1)));
      }
    }
  }
  return UIImage::fromPixels(result, width, height, width * (hasAlpha ? 4 : 3),
                             hasAlpha ? uikit::PixelFormat::rgba : uikit::PixelFormat::rgb);
}

/// Never the bytes that came: a picture leaves here as PNG made from its pixels.
std::optional<Data> pngOf(const std::optional<UIImage>& image) {
  return image ? UIImagePNGRepresentation(reduced(*image)) : std::nullopt;
}

// ---- Routes ----

HTTPAnswer answerOf(std::string_view type, std::string body) {
  return {.type = std::string(type),
          .body = std::move(body),
          .headers = {{"Content-Security-Policy",
                       "default-src 'none'; script-src 'self'; style-src 'self'; img-src 'self'; connect-src 'self'; "
                       "base-uri 'none'; form-action 'none'; frame-ancestors 'none'"},
                      {"Cross-Origin-Opener-Policy", "same-origin"},
                      {"Cross-Origin-Resource-Policy", "same-origin"},
                      {"Referrer-Policy", "no-referrer"}}};
}

HTTPAnswer nothing() {
  HTTPAnswer answer = answerOf("text/plain", "There is nothing here, or no longer.\n");
  answer.status = 404;
  return answer;
}

/// "7" is an arrival, "7/portrait.png" and "7/selfie.png" are its pictures.
HTTPAnswer answerBelow(const Arrivals& arrivals, std::string_view path) {
  std::uint64_t id = 0;
  const auto [end, error] = std::from_chars(path.data(), path.data() + path.size(), id);
  const auto arrival = error == std::errc() ? arrivals.find(id) : nullptr;
  if (!arrival) return nothing();
  path.remove_prefix(static_cast<std::size_t>(end - path.data()));
  if (path.empty()) return answerOf("text/html; charset=utf-8", articleOf(*arrival));
  std::optional<Data> png;
  if (arrival->request && path == "/portrait.png") png = pngOf(arrival->request->model.passportImage());
  if (arrival->request && path == "/selfie.png" && arrival->request->selfie) {
    png = pngOf(UIImage::fromData(arrival->request->selfie->png));
  }
  return png ? answerOf("image/png", std::string(foundation::textOf(*png))) : nothing();
}

Route route(std::string path, std::function<HTTPAnswer(HTTPRequest)> handle) {
  return {.method = "GET", .path = std::move(path), .onlyLoopback = true, .handle = std::move(handle)};
}

Route asset(const std::string& name, std::string type) {
  return route("/assets/" + name,
               [name, type = std::move(type)](const HTTPRequest&) { return answerOf(type, resource(name)); });
}

}  // namespace

std::string articleOf(const Arrival& arrival) {
  const Answer& answer = arrival.answer;
  std::string facts;
  if (!arrival.scenario.empty()) facts += fact("Scenario", "<code>" + markupOf(arrival.scenario) + "</code>");
  const bool isCut = arrival.body.size() < arrival.bodySize;
  return filled(resource("arrival.html"),
                {{"id", std::to_string(arrival.id)},
                 {"result", std::string(name(answer.error ? Result::failed : answer.status))},
                 {"icon", iconFor(answer.error ? Result::failed : answer.status)},
                 {"verdict", answer.error ? "Refused" : std::string(wordFor(answer.status))},
                 {"summary", summaryOf(answer)},
                 {"document", arrival.request ? documentOf(arrival) : ""},
                 {"checks", arrival.request ? checksOf(answer) : ""},
                 {"time", timeText(arrival.received, "%FT%TZ")},
                 {"clock", timeText(arrival.received, "%d %b, %T")},
                 {"status", std::to_string(arrival.status)},
                 {"facts", facts},
                 {"receiving", durationText(arrival.receiving)},
                 {"decoding", durationText(arrival.decoding)},
                 {"checking", durationText(arrival.checking)},
                 {"size", sizeText(arrival.bodySize) +
                              (isCut ? " of which the first " + sizeText(arrival.body.size()) + " were kept" : "")},
                 {"body", markupOfBody(foundation::textOf(arrival.body))}});
}

std::string pageOf(const std::vector<Arrivals::Pointer>& arrivals) {
  std::vector<Arrivals::Pointer> newestFirst = arrivals;
  std::ranges::sort(newestFirst, std::greater(), [](const Arrivals::Pointer& arrival) { return arrival->id; });
  std::string articles;
  for (const auto& arrival : newestFirst) articles += articleOf(*arrival);
  return filled(resource("page.html"),
                {{"most", std::to_string(Arrivals::maximumCount)}, {"arrivals", std::move(articles)}});
}

std::vector<Route> pageRoutes(Arrivals& arrivals) {
  const std::string below = "/arrivals/";
  const auto events = [&arrivals](const HTTPRequest&) {
    HTTPAnswer answer = answerOf("text/event-stream", "");
    answer.stream = [&arrivals](const std::shared_ptr<EventStream>& stream) {
      const auto tell = [stream](const Arrivals::Pointer& arrival) {
        return stream->send("arrival", std::to_string(arrival->id));
      };
      for (const auto& arrival : arrivals.subscribe(tell)) tell(arrival);
    };
    return answer;
  };
  return {route("/", [&arrivals](
                         const HTTPRequest&) { return answerOf("text/html; charset=utf-8", pageOf(arrivals.all())); }),
          asset("page.css", "text/css; charset=utf-8"),
          asset("page.js", "text/javascript; charset=utf-8"),
          asset("icon.svg", "image/svg+xml"),
          route(below,
                [&arrivals, below](const HTTPRequest& request) {
                  return answerBelow(arrivals, std::string_view(request.path).substr(below.size()));
                }),
          route("/events", events)};
}

}  // namespace tavlo::sandbox
