// A document's record that somebody else has exported, and after a NUL byte the picture "a" that it may name.
#include <tavlo/DocumentFolder.hpp>

#include "fuzz.hpp"
#include "support/TemporaryFolder.hpp"

void tavlo::fuzz::run(DataView input) {
  static const test::TemporaryFolder scratch;
  Input parts{input};
  const Data record = foundation::dataOf(parts.text('\0'));
  const auto limit = decodingLimit(parts.rest);
  if (!limit) return;
  foundation::writePrivately(scratch / "a", parts.rest);

  within(256 * record.size() + *limit, [&] {
    app::DocumentFolder folder(scratch / "documents", app::DocumentFolder::Access::change);
    std::string id;
    if (!isAccepted<app::Failure>([&] { id = folder.import(record, scratch.path()); })) return;
    // What is kept can be shown, exported, and imported again.
    const app::StoredDocument stored = folder.read(id);
    require(stored.json == record && stored.document->json() && isValidUTF8(stored.document->description()));
    for (const auto& name : app::pictureNames(*stored.document)) (void)uikit::UIImage::decode(folder.picture(name));
    const std::string twin = folder.import(stored.json, std::nullopt);
    require(twin != id && folder.contents().documents.size() == 2 && folder.contents().damaged.empty());
    folder.remove(twin);
    folder.remove(id);
  });
  // Neither a refused record nor a removed one leaves anything but the lock and the folder for pictures.
  const auto left = std::filesystem::recursive_directory_iterator(scratch / "documents");
  require(std::distance(begin(left), end(left)) <= 2);
}
