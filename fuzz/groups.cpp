// One elementary file, as the class that its first byte announces.
#include <TavloReader/TLV.internal.hpp>
#include <specimen/DER.hpp>

#include "fuzz.hpp"

using namespace tavlo::reader;

void tavlo::fuzz::run(DataView input) {
  within(48 * input.size() + (64 << 10), [&] {
    (void)isAccepted<ReaderError>([&] {
      for (TLVReader reader(input, "file"); !reader.atEnd();) {
        const TLV element = reader.next();
        const Data written = specimen::element(element.tag, element.value);
        require(std::ranges::equal(TLVReader(written, "element").next(element.tag), element.value));
      }
    });
    const auto id = dataGroupWithTag(input.empty() ? 0 : input[0]);
    NFCPassportModel model;
    if (!id || !isAccepted<ReaderError>([&] { model.add(DataGroup::parse(*id, {input.begin(), input.end()})); }))
      return;
    const DataGroup& group = *model.dataGroupsRead().at(*id);
    require(std::ranges::equal(group.data(), input.first(group.data().size())));
    require(DataGroup::parse(*id, group.data())->data() == group.data());
    if (DataGroup::recognise(input) == id) require(DataGroup::parse(group.data())->id() == *id);

    require(isValidUTF8(model.lastName() + "," + model.firstName() + "," + model.documentNumber() + "," +
                        model.documentType() + "," + model.nationality() + "," + model.dateOfBirth()));
    if (const auto* texts = model.find<TextDataGroup>()) {
      for (const auto& item : texts->items()) require(isValidUTF8(item.text));
    }
  });
}
