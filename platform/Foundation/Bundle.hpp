#pragma once

#include <Foundation/Data.hpp>

#include <filesystem>
#include <memory>
#include <optional>
#include <span>
#include <string_view>

namespace tavlo::foundation {

/// A set of resource files, found by name.
class Bundle {
 public:
  virtual ~Bundle() = default;

  /// The bytes of the resource file `name`, such as "brenu1.png"; absent when there is none. Any thread.
  [[nodiscard]] virtual std::optional<Data> resource(std::string_view name) const = 0;

  /// The host app's own bundle: unless the app has put one in, the folder "resources" beside the running program.
  [[nodiscard]] static std::shared_ptr<Bundle> main();
  /// Puts the host app's bundle in; none brings the default back. Gives back the previous one.
  static std::shared_ptr<Bundle> installMain(std::shared_ptr<Bundle> bundle);

  /// The bundle of the library `library`: what has been put in for it, else what `makeDefault` gives at first use.
  [[nodiscard]] static std::shared_ptr<Bundle> ofLibrary(std::string_view library,
                                                         std::shared_ptr<Bundle> (*makeDefault)());
  /// Puts a bundle in for a library; none brings its own back at next use. Gives back the previous one.
  static std::shared_ptr<Bundle> installOfLibrary(std::string_view library, std::shared_ptr<Bundle> bundle);
};

/// Resource files that are compiled into a library: names and bytes that live as long as the process.
class CompiledBundle final : public Bundle {
 public:
  /// One file: its name and its bytes, both kept by the caller.
  struct Resource {
    std::string_view name;  ///< such as "brenu1.png"
    DataView bytes;         ///< the file's content
  };
  /// `resources` and what it shows must live as long as the bundle.
  explicit CompiledBundle(std::span<const Resource> resources) : resources_(resources) {}
  [[nodiscard]] std::optional<Data> resource(std::string_view name) const override;

 private:
  std::span<const Resource> resources_;
};

/// The files of one folder. A name never reaches outside it.
class FolderBundle final : public Bundle {
 public:
  /// `folder` need not be there: then there is no resource.
  explicit FolderBundle(std::filesystem::path folder);
  [[nodiscard]] std::optional<Data> resource(std::string_view name) const override;

 private:
  std::filesystem::path folder_;
};

}  // namespace tavlo::foundation
