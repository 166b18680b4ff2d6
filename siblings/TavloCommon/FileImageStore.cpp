#include <Foundation/Data.hpp>
#include <TavloCommon/FileImageStore.hpp>

namespace tavlo::common {

std::optional<std::string> FileImageStore::persist(const uikit::UIImage& image) {
  const auto png = uikit::UIImagePNGRepresentation(image);
  if (!png) return std::nullopt;
  foundation::createPrivateFolder(folder_);
  if (!isSwept_.exchange(true)) foundation::sweepTemporaryFiles(folder_);
  // 128 random bits: no two images ever get the same name, and none can be guessed from another.
  std::string name = foundation::randomName(16) + ".png";
  if (!foundation::writePrivately(folder_ / name, *png, foundation::IfExists::fail)) return std::nullopt;
  return name;
}

std::optional<uikit::UIImage> FileImageStore::load(std::string_view name) {
  constexpr std::string_view separators("/\0", 2);
  if (name.empty() || name.size() > 255 || name.find_first_of(separators) != std::string_view::npos)
    return std::nullopt;
  const std::filesystem::path file = folder_ / name;
  if (!is_regular_file(symlink_status(file))) return std::nullopt;  // "..", a link, or nothing at all
  return uikit::UIImage::decode(foundation::contentsOf(file));
}

}  // namespace tavlo::common
