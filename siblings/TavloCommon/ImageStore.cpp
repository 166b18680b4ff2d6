#include <Foundation/SharedService.hpp>
#include <TavloCommon/FileImageStore.hpp>

#include <exception>
#include <utility>

namespace tavlo::common {

namespace {

constinit foundation::SharedService<ImageStore> imageStoreInForce([]() -> std::shared_ptr<ImageStore> {
  return std::make_shared<FileImageStore>(foundation::applicationSupportFolder() / "images");
});

}  // namespace

std::shared_ptr<ImageStore> ImageStore::shared() {
  return imageStoreInForce.get();
}

std::shared_ptr<ImageStore> ImageStore::install(std::shared_ptr<ImageStore> store) {
  return imageStoreInForce.exchange(std::move(store));
}

std::optional<std::string> persist(const uikit::UIImage& image) try {
  return ImageStore::shared()->persist(image);
} catch (const std::exception&) {
  return std::nullopt;
}

std::optional<uikit::UIImage> fromURL(std::string_view name) try {
  return ImageStore::shared()->load(name);
} catch (const std::exception&) {
  return std::nullopt;
}

}  // namespace tavlo::common
