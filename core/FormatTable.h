#pragma once
// The input formats offered by the format selector (Combo1), the rules of
// the "type extension" box (Text1), and the start-up values. The window and
// kestro-convert both act through these functions.
#include <array>
#include <string>

#include "core/Session.h"

namespace kestro {

struct FormatEntry {
    const char* text;     // as the selector shows it
    const char* pattern;  // put into Text1, and so into the file list's pattern
    const char* option;   // the new formatOption
    enum Effect : unsigned {
        None = 0,
        UncheckSPE = 1,
        UncheckSPO = 2,
        CheckSPE = 4,
        ShowOmdaqAndDxp = 8,
        LinearWhenPlotting = 16,  // LogScale unchecked if DsGr is checked
    };
    unsigned effects;
};

inline constexpr int FormatCount = 24;
inline constexpr int AllFormatsIndex = 11;
extern const std::array<FormatEntry, FormatCount> formatTable;

// Start-up: output extensions, Text1 and the pattern "*.cnf", Combo1's text
// set to Text1's, the optional boxes hidden.
void formLoad(Session& form);

// The user picks entry `index` (outside 0-23 counts as "All").
void Combo1_Click(Session& form, int index);
// The user types `text` into the selector.
void Combo1_Change(Session& form, const std::string& text);
// The "type extension" box now holds `text`.
void Text1_Change(Session& form, const std::string& text);

// The index of the entry whose text is exactly `text`, or -1.
int formatIndexOf(const std::string& text);

}  // namespace kestro
