#include <Foundation/Bundle.hpp>
#include <Foundation/SharedService.hpp>

#include <algorithm>
#include <map>
#include <mutex>
#include <string>
#include <system_error>
#include <utility>

namespace tavlo::foundation {

namespace {

std::shared_ptr<Bundle> folderBesideProgram() {
  std::error_code error;
  const auto program = std::filesystem::read_symlink("/proc/self/exe", error);
  return std::make_shared<FolderBundle>(program.parent_path() / "resources");
}

constinit SharedService<Bundle> mainBundle(folderBesideProgram);

using BundlesByLibrary = std::map<std::string, std::shared_ptr<Bundle>, std::less<>>;

/// Under the services' lock; never destroyed, as a late exit handler may still ask.
BundlesByLibrary& libraryBundles() {
  static auto* const bundles = new BundlesByLibrary;
  return *bundles;
}

}  // namespace

std::shared_ptr<Bundle> Bundle::main() {
  return mainBundle.get();
}

std::shared_ptr<Bundle> Bundle::installMain(std::shared_ptr<Bundle> bundle) {
  return mainBundle.exchange(std::move(bundle));
}

std::shared_ptr<Bundle> Bundle::ofLibrary(std::string_view library, std::shared_ptr<Bundle> (*makeDefault)()) {
  const std::lock_guard lock(servicesMutex());
  auto& slot = libraryBundles()[std::string(library)];
  if (!slot) slot = makeDefault();
  return slot;
}

std::shared_ptr<Bundle> Bundle::installOfLibrary(std::string_view library, std::shared_ptr<Bundle> bundle) {
  const std::lock_guard lock(servicesMutex());
  return std::exchange(libraryBundles()[std::string(library)], std::move(bundle));
}

std::optional<Data> CompiledBundle::resource(std::string_view name) const {
  const auto found = std::ranges::find(resources_, name, &Resource::name);
  if (found == resources_.end()) return std::nullopt;
  return Data(found->bytes.begin(), found->bytes.end());
}

FolderBundle::FolderBundle(std::filesystem::path folder) : folder_(std::move(folder)) {}

std::optional<Data> FolderBundle::resource(std::string_view name) const {
  if (name.empty() || name == "." || name == ".." || name.find('/') != std::string_view::npos) return std::nullopt;
  try {
    return contentsOf(folder_ / name);
  } catch (const std::system_error&) {
    return std::nullopt;
  }
}

}  // namespace tavlo::foundation
