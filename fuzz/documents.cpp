// A document out of several files.
#include "fuzz.hpp"

using namespace tavlo::reader;

void tavlo::fuzz::run(DataView input) {
  within(160 * input.size() + (64 << 10), [&] {
    DocumentReading reading;
    if (!isAccepted<ReaderError>([&] { reading = readFiles({input}); })) return;
    const auto& groups = reading.model.dataGroupsRead();
    std::vector<NamedFile> files;
    for (const FileFinding& finding : reading.findings) {
      require(isValidUTF8(finding.name + finding.text) && std::ranges::all_of(finding.oddities, isValidUTF8));
      if (finding.kind != FileFinding::Kind::group) continue;
      const Data& bytes = groups.at(finding.group.value())->data();
      if (DataGroup::recognise(bytes) == finding.group) files.push_back({"", bytes});
    }
    // What does not need its file's name to be recognised makes the same document again.
    const DocumentReading again = readDocument(files);
    require(again.model.dataGroupsRead().size() == files.size());
    for (const auto& [id, group] : again.model.dataGroupsRead()) require(group->data() == groups.at(id)->data());
  });
}
