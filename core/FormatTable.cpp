#include "core/FormatTable.h"

#include <algorithm>
#include <cctype>

namespace kestro {

using E = FormatEntry;

// The entry texts are kept exactly as users have always seen them,
// "(XLM/W3C)", "DICOM (NEMA}" and "Phillips" included.
const std::array<FormatEntry, FormatCount> formatTable = {{
    {"Genie2K *.cnf", "*.cnf", "", E::UncheckSPO},
    {"FastComtec MPA3 *.mp*", "*.mpa;*.mp", "", E::None},
    {"Bruker/AXS D-8 *.raw", "*.raw", "", E::None},
    {"Bruker/AXS SDD *.spx", "*.spx", "", E::CheckSPE | E::UncheckSPO},
    {"OriginLab (X,Y) *.odf", "*.odf", "", E::ShowOmdaqAndDxp},
    {"Canberra MCA *.bin", "*.bin", "", E::None},
    {"Canberra S-100 *.mca", "*.mca", "S100", E::None},
    {"Canberra 35/40 *.mca", "*.mca", "S35F", E::None},
    {"SpecTech *.spu", "*.spu", "", E::None},
    {"IAEA/GANAAS/AXIL *.spe", "*.spe", "", E::None},
    {"ASCII *.dat", "*.dat", "", E::None},
    {"All", "*.*", "", E::UncheckSPE | E::UncheckSPO},
    {"OMDAQ", "*._", "OMD", E::UncheckSPO},
    {"ORTEC/Maestro *.chn", "*.chn", "", E::None},
    {"Generic *.xml", "*.xml", "", E::None},
    {"Thermo-Scientific *.spa", "*.spa", "", E::UncheckSPE | E::UncheckSPO | E::LinearWhenPlotting},
    {"Thermo-Scientific *.spc", "*.spc", "", E::None},
    {"Old TA Instr TGA/DSC", "*.*", "ATA", E::None},
    {"GAML (XLM/W3C) *.gaml", "*.gaml", "", E::None},
    {"JCAMP (IUPAC) *.jdx;*.dx", "*.jdx;*.dx", "", E::None},
    {"DICOM (NEMA}", "*.dcm;*.", "DICOM", E::None},
    {"Shimadzu *.spc", "*.spc", "Shim_SPC", E::None},
    {"Shimadzu *.pho", "*.pho", "Shim_PHO", E::None},
    {"Phillips/PAN *.rd", "*.rd", "", E::UncheckSPE | E::UncheckSPO},
}};

namespace {

bool isSeparator(char c) {
    return c == '\\' || c == '|' || c == '/' || c == ',' || c == ' ' || c == ':' || c == ';';
}

std::string lowerCase(std::string s) {
    std::transform(s.begin(), s.end(), s.begin(), [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return s;
}

void setOptionalBoxesVisible(Session& form, bool visible) {
    form.changeBoxes([visible](Boxes& b) {
        b.omdaqVisible = visible;
        b.dxpVisible = visible;
        if (!visible) {
            b.cOMDAQ = false;
            b.cDXP = false;
        }
    });
}

// Setting the box's text runs its change rules, as typing would; setting
// the same text again changes nothing.
void setTypedText(Session& form, const std::string& text) {
    if (text != form.typedText) Text1_Change(form, text);
}

void setComboText(Session& form, const std::string& text) {
    if (text != form.comboText) Combo1_Change(form, text);
}

}  // namespace

void formLoad(Session& form) {
    form.outputExt = {".dat", ".spe", ".spo"};
    form.typedText = "*.cnf";
    form.filePattern = "*.cnf";
    setComboText(form, form.typedText);
    form.changeBoxes([](Boxes& b) {
        b.omdaqVisible = false;
        b.cOMDAQ = false;
    });
}

void Combo1_Click(Session& form, int index) {
    if (index < 0 || index >= FormatCount) index = AllFormatsIndex;
    const FormatEntry& entry = formatTable[static_cast<size_t>(index)];
    form.formatOption = "";
    form.comboText = entry.text;
    setTypedText(form, entry.pattern);
    form.formatOption = entry.option;
    const unsigned fx = entry.effects;
    if ((fx & E::LinearWhenPlotting) && form.boxes.DsGr && form.boxes.LogScale)
        form.boxNotes.push_back(std::string("LOG unticked by choosing \"") + entry.text + "\"");
    form.changeBoxes([fx](Boxes& b) {
        if (fx & E::UncheckSPE) b.SPE = false;
        if (fx & E::UncheckSPO) b.SPO = false;
        if (fx & E::CheckSPE) b.SPE = true;
        if (fx & E::ShowOmdaqAndDxp) b.omdaqVisible = b.dxpVisible = true;
        if ((fx & E::LinearWhenPlotting) && b.DsGr) b.LogScale = false;
    });
}

void Combo1_Change(Session& form, const std::string& text) {
    form.comboText = text;
    if (text == "-odat" || text == "-dat") {
        form.host().messageBox("Option no longer supported! Set the SPE/SPO appropriate selection and try again!!",
                               BoxIcon::Critical, BoxButtons::Ok);
        setComboText(form, "*.cnf");
    }
    setOptionalBoxesVisible(form, text == "*.odf");
}

void Text1_Change(Session& form, const std::string& text) {
    form.typedText = text;
    const std::string token = lowerCase(text);
    if (!text.empty() && isSeparator(text.front())) {
        setTypedText(form, "");
    } else if (!text.empty() && isSeparator(text.back())) {
        const std::string ended = text.substr(0, text.size() - 1) + ";";
        setTypedText(form, ended);
        setComboText(form, ended);
    } else if (token == "-dat" || token == "-odat") {
        const bool spo = token == "-odat";
        setTypedText(form, "*.dat");
        form.formatOption = "-dat";
        form.changeBoxes([spo](Boxes& b) {
            b.SPE = !spo;
            b.SPO = spo;
        });
    }
    form.filePattern = form.typedText;
    form.host().boxesChanged();
}

int formatIndexOf(const std::string& text) {
    for (int i = 0; i < FormatCount; ++i)
        if (text == formatTable[static_cast<size_t>(i)].text) return i;
    return -1;
}

}  // namespace kestro
