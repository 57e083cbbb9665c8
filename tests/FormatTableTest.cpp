// The format selector's rows, the "type extension" token rules and the
// start-up values.
#include "TestSupport.h"

namespace kestro {
namespace {

using FormatTableTest = testing::ConversionTest;

TEST_F(FormatTableTest, StartUpValuesAndEntryTexts) {
    EXPECT_EQ(form.typedText, "*.cnf");
    EXPECT_EQ(form.comboText, "*.cnf");
    EXPECT_EQ(form.filePattern, "*.cnf");
    EXPECT_EQ(form.formatOption, "");
    EXPECT_FALSE(form.boxes.omdaqVisible || form.boxes.dxpVisible);
    // Entry texts are kept exactly.
    EXPECT_STREQ(formatTable[18].text, "GAML (XLM/W3C) *.gaml");
    EXPECT_STREQ(formatTable[20].text, "DICOM (NEMA}");
    EXPECT_STREQ(formatTable[23].text, "Phillips/PAN *.rd");
    EXPECT_EQ(formatIndexOf("Canberra 35/40 *.mca"), 7);
    EXPECT_EQ(formatIndexOf("Canberra 35/40"), -1);
}

TEST_F(FormatTableTest, ChoosingAnEntrySetsPatternOptionAndBoxes) {
    form.boxes.SPO = true;
    Combo1_Click(form, 3);  // Bruker SDD
    EXPECT_EQ(form.typedText, "*.spx");
    EXPECT_EQ(form.filePattern, "*.spx");
    EXPECT_TRUE(form.boxes.SPE && !form.boxes.SPO);

    Combo1_Click(form, 6);  // S-100: the option token; boxes the row does not name stay
    EXPECT_EQ(form.formatOption, "S100");
    EXPECT_EQ(form.filePattern, "*.mca");
    EXPECT_TRUE(form.boxes.SPE);

    Combo1_Click(form, 1);
    EXPECT_EQ(form.formatOption, "");
    EXPECT_EQ(form.filePattern, "*.mpa;*.mp");

    Combo1_Click(form, 4);
    EXPECT_TRUE(form.boxes.omdaqVisible && form.boxes.dxpVisible);

    Combo1_Click(form, 99);  // outside the table: "All"
    EXPECT_EQ(form.comboText, "All");
    EXPECT_EQ(form.filePattern, "*.*");
    EXPECT_FALSE(form.boxes.SPE || form.boxes.SPO);

    Combo1_Click(form, 20);
    EXPECT_EQ(form.formatOption, "DICOM");
    EXPECT_EQ(form.filePattern, "*.dcm;*.");

    // The SPA entry turns the log scale off only when plotting.
    form.boxes.LogScale = true;
    Combo1_Click(form, 15);
    EXPECT_TRUE(form.boxes.LogScale);
    form.boxes.DsGr = true;
    Combo1_Click(form, 15);
    EXPECT_FALSE(form.boxes.LogScale);
}

TEST_F(FormatTableTest, TypedTokensAndTypingIntoTheSelector) {
    Text1_Change(form, "-odat");
    EXPECT_EQ(form.typedText, "*.dat");
    EXPECT_EQ(form.filePattern, "*.dat");
    EXPECT_EQ(form.formatOption, "-dat");
    EXPECT_TRUE(form.boxes.SPO && !form.boxes.SPE);
    Text1_Change(form, "-DAT");
    EXPECT_TRUE(form.boxes.SPE && !form.boxes.SPO);

    Text1_Change(form, "*.chn|");  // a trailing separator becomes ";" and goes to the selector
    EXPECT_EQ(form.typedText, "*.chn;");
    EXPECT_EQ(form.comboText, "*.chn;");
    EXPECT_EQ(form.filePattern, "*.chn;");

    Text1_Change(form, "/x");  // a leading separator clears the box
    EXPECT_EQ(form.typedText, "");
    EXPECT_EQ(form.filePattern, "");

    // Typing into the selector.
    Combo1_Change(form, "*.odf");
    EXPECT_TRUE(form.boxes.omdaqVisible && form.boxes.dxpVisible);
    form.boxes.cOMDAQ = form.boxes.cDXP = true;

    Combo1_Change(form, "*.spe");
    EXPECT_FALSE(form.boxes.omdaqVisible || form.boxes.dxpVisible || form.boxes.cOMDAQ || form.boxes.cDXP);

    Combo1_Change(form, "-odat");
    EXPECT_EQ(message(), "Option no longer supported! Set the SPE/SPO appropriate selection and try again!!");
    EXPECT_EQ(host.boxes.at(0).icon, BoxIcon::Critical);
    EXPECT_EQ(form.comboText, "*.cnf");
}

}  // namespace
}  // namespace kestro
