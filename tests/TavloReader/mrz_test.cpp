#include <TavloReader/MRZ.hpp>

#include <Foundation/UTF8.hpp>
#include <TavloReader/DataGroup.hpp>
#include <gtest/gtest.h>

#include "support/Documents.hpp"

namespace tavlo::reader {
namespace {

/// All that a zone says, with "!" before what is wrong or odd.
std::string summary(const MRZ& mrz) {
  std::string text(name(mrz.format));
  for (const auto& field : {mrz.documentCode, mrz.issuingState, mrz.documentNumber, mrz.nationality, mrz.lastName,
                            mrz.firstName, mrz.dateOfBirth, mrz.gender, mrz.dateOfExpiry, mrz.optionalData}) {
    text += "|" + field;
  }
  if (!mrz.optionalData2.empty()) text += "|" + mrz.optionalData2;
  for (const auto& digit : mrz.checkDigits) {
    if (!digit.correct) text += " !" + std::string(digit.field);
  }
  if (mrz.namesFillField) text += " !names";
  if (mrz.foreignCharacters) text += " !characters";
  return text;
}

TEST(MRZ, IsTakenApart) {
  // The first five are worked examples of ICAO Doc 9303-4, -5, -6 and -10.
  const std::pair<std::string_view, std::string_view> cases[] = {
      {test::exampleTD3, "TD3|P|UTO|L898902C3|UTO|ERIKSSON|ANNA MARIA|740812|F|120415|ZE184226B"},
      {test::exampleTD2, "TD2|I|UTO|D23145890|UTO|ERIKSSON|ANNA MARIA|740812|F|120415|"},
      {test::exampleTD1, "TD1|I|UTO|D23145890|UTO|ERIKSSON|ANNA MARIA|740812|F|120415|"},
      {"I<NLDXI85935F86999999990<<<<<<7208148F1108268NLD<<<<<<<<<<<4VAN<DER<STEEN<<MARIANNE<LOUISE",
       "TD1|I|NLD|XI85935F8|NLD|VAN DER STEEN|MARIANNE LOUISE|720814|F|110826|999999990 !composite !names"},
      {"I<ATASMITH<<JOHN<T<<<<<<<<<<<<<<<<<<123456789<HMD7406221M10123120122<<<0",
       "TD2|I|ATA|123456789012|HMD|SMITH|JOHN T|740622|M|101231|"},
      {"I<UTOD23145890<7349<AB<C<<<<<<7408122<1204159D<<XY<Z<<<<<<<1ERIKSSON<<<<<<<<<<<<<<<<<<<<<<",
       "TD1|I|UTO|D23145890734|D|ERIKSSON||740812||120415|AB<C|XY<Z"},
      {"I<UTOD23145890<7340000000000097408122<1204159D<<<<<<<<<<<<<2ERIKSSON<<<<<<<<<<<<<<<<<<<<<<",
       "TD1|I|UTO|D2314589073400000000000|D|ERIKSSON||740812||120415|"},
      {"PPUTOO<BRIEN<<<ANNA<<MARIA<<<<<<<<<<<<<<<<<<<<<<<<<<<<D<<74<<<<1X<<<<<<0<<<<<<<<<<<<<<<8",
       "TD3|PP|UTO||D|O BRIEN|ANNA MARIA|74<<<<||<<<<<<|"},
      {"P<UTOERIKSSON<<ANNA<MARIA<<<<<<<<<<<<<<<<<<<L898902C35UTO7408123F1204158ZE184226B<<<<<01",
       "TD3|P|UTO|L898902C3|UTO|ERIKSSON|ANNA MARIA|740812|F|120415|ZE184226B "
       "!number !birth !expiry !optional !composite"},
      {"P<UTOM\xDCLLER<<Ana<<<<<<<<<<<<<<<<<<<<<<<<<<<<L898902C36UTO7408122F1204159ZE184226B<<<<<10",
       "TD3|P|UTO|L898902C3|UTO|M\uFFFDLLER|Ana|740812|F|120415|ZE184226B !characters"}};
  for (const auto& [zone, expected] : cases) {
    const std::string text = summary(MRZ::parse(zone));
    EXPECT_EQ(text, expected);
    EXPECT_TRUE(foundation::isValidUTF8(text));
  }
}

TEST(MRZ, HasOneOfThreeLengths) {
  for (const auto length : {0U, 71U, 73U, 87U, 89U, 91U, 180U}) {
    EXPECT_THROW(static_cast<void>(MRZ::parse(std::string(length, '<'))), ReaderError) << length;
  }
}

}  // namespace
}  // namespace tavlo::reader
