#include "core/Writers.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cstring>

#include "core/runtime/Dates.h"
#include "core/runtime/Files.h"
#include "core/runtime/NumberText.h"
#include "core/runtime/RuntimeError.h"
#include "core/runtime/TextInput.h"

namespace kestro {

void DataBlock::field(std::string_view text) {
    if (text.size() <= DataFieldWidth) {
        // One append of a whole field, built with plain loops: the common
        // case, run once per channel.
        char f[DataFieldWidth + 2];
        const size_t pad = DataFieldWidth - text.size();
        for (size_t i = 0; i < pad; ++i) f[i] = ' ';
        for (size_t i = 0; i < text.size(); ++i) f[pad + i] = text[i];
        size_t n = DataFieldWidth;
        if (++count_ % FieldsPerLine == 0) {
            f[n++] = '\r';
            f[n++] = '\n';
        }
        out_.append(f, n);
        return;
    }
    out_ += text;
    if (++count_ % FieldsPerLine == 0) out_ += "\r\n";
}

void DataBlock::count(int64_t value) {
    char text[24];
    char* end = writePrintItem(text, value) - 1;  // the print item less its trailing blank
    field(std::string_view(text, static_cast<size_t>(end - text)));
}

void DataBlock::field(int64_t value) {
    char digits[24];
    std::string_view text(digits, static_cast<size_t>(std::to_chars(digits, digits + sizeof digits, value).ptr - digits));
    field(text);
}

ChannelCounts::ChannelCounts(const BinaryReader& in, int64_t offset, int64_t n) : counts_(static_cast<size_t>(n)) {
    for (int64_t i = 0; i < n; ++i) counts_[static_cast<size_t>(i)] = in.i32(offset + 4 * i);
}

int32_t& ChannelCounts::operator[](int64_t channel) {
    if (channel < 1 || channel > static_cast<int64_t>(counts_.size())) raise(err::SubscriptOutOfRange);
    return counts_[static_cast<size_t>(channel - 1)];
}

void ChannelCounts::writeTo(TextWriter& out) const {
    DataBlock block(out.buffer());
    for (int32_t c : counts_) block.count(c);
}

DateTimeTexts modificationTexts(const std::string& path) {
    const std::string general = generalDate(fileModified(path));
    const std::string date = general.substr(0, 10);
    const std::string time = general.size() > 8 ? general.substr(general.size() - 8) : general;
    return {formatText(date, "dd-mm-yyyy"), formatText(time, "hh:mm:ss")};
}

void writeSpeHeader(TextWriter& out, const SpeHeader& header, TimePadding padding) {
    const std::string live = signedText(header.liveTime);
    const std::string real = signedText(header.realTime);
    const std::string last = signedText(header.lastChannel);
    // With Distance padding a time text longer than 10 characters gets
    // (length - 10) blanks in front, as it always did.
    auto padded = [padding](const std::string& t) {
        const int64_t gap = 10 - static_cast<int64_t>(t.size());
        return spaces(padding == TimePadding::Distance ? std::abs(gap) : gap) + t;
    };
    out.text("$SPEC_ID:").endLine();
    out.text(header.id).endLine();
    out.text("$DATE_MEA:").endLine();
    out.text(header.when.date).text("  ").text(header.when.time).endLine();
    out.text("$MEAS_TIM:").endLine();
    out.text(padded(live)).text(padded(real)).endLine();
    out.text("$DATA:").endLine();
    out.text("         0").text(spaces(10 - static_cast<int64_t>(last.size()))).text(last).endLine();
}

void writeSpoHeader(TextWriter& out, int64_t channelCount) {
    out.item(channelCount).zone().text("0").endLine();
}

namespace {

void replaceFirstByZero(std::string& block, const std::string& text) {
    if (text.empty()) return;
    size_t at = block.find(text);
    if (at == std::string::npos) return;
    block.replace(at, text.size(), std::string(text.size() - 1, ' ') + "0");
}

}  // namespace

void zeroLeadingTimes(std::string& block, const Value& liveTime, const Value& realTime) {
    replaceFirstByZero(block, plainText(liveTime));
    replaceFirstByZero(block, plainText(realTime));
}

WrapTimes readWrapTimes(const std::string& source, std::string_view block) {
    WrapTimes times;
    times.when = modificationTexts(source);
    TextReader reader = TextReader::over(block);
    times.liveTime = Value::ofDouble(reader.listInputNumber());
    times.realTime = Value::ofDouble(reader.listInputNumber());
    return times;
}

void writeWrapped(Session& form, const std::string& source, const WrapTimes& times, std::string block,
                  const std::string& outputStem) {
    form.sharedRealTime = times.realTime;
    if (form.boxes.SPE) {
        TextWriter out(outputStem + ".spe");
        writeSpeHeader(out, {source, times.when, times.liveTime, times.realTime, form.valueCount - 1});
        zeroLeadingTimes(block, times.liveTime, times.realTime);
        out.text(block).endLine();
        out.close();
    } else {
        TextWriter out(outputStem + ".spo");
        writeSpoHeader(out, form.valueCount);
        out.text(std::string_view(block).substr(0, block.find('$'))).endLine();
        out.close();
    }
}

void wrapDataBlock(Session& form, const std::string& source, std::string block, const std::string& outputStem) {
    const WrapTimes times = readWrapTimes(source, block);
    writeWrapped(form, source, times, std::move(block), outputStem);
}

namespace {

bool isColumnBlank(char c) { return c == ' ' || c == '\t'; }

// The second column of a line, once decimal commas are points and tabs are
// blanks; a line without one is "Subscript out of range".
std::string_view secondColumn(std::string_view line) {
    size_t i = 0;
    while (i < line.size() && isColumnBlank(line[i])) ++i;
    while (i < line.size() && !isColumnBlank(line[i])) ++i;
    while (i < line.size() && isColumnBlank(line[i])) ++i;
    size_t end = i;
    while (end < line.size() && !isColumnBlank(line[end])) ++end;
    if (i == end) raise(err::SubscriptOutOfRange);
    return line.substr(i, end - i);
}

}  // namespace

void ConvOdf(Session& form, const std::string& inputName, const std::string& outputName) {
    TextReader input(readTextFile(inputName));
    // A line gives at most 10 block bytes for the 4 it takes at least.
    std::string block = reserveLarge(static_cast<size_t>(input.length()) * 5 / 2 + 16);
    DataBlock fields(block);
    std::string decimalPoint;
    while (!input.eof()) {
        std::string_view y = secondColumn(input.lineInput());
        if (std::any_of(y.begin(), y.end(), [](char c) { return c == ','; })) {
            decimalPoint.assign(y);
            for (char& c : decimalPoint)
                if (c == ',') c = '.';
            y = decimalPoint;
        }
        fields.field(y);
    }
    input.release();  // let the input go before the block is written out
    const bool oneBox = form.boxes.SPE != form.boxes.SPO;
    const bool wrappable = endsWithLower(inputName, "odf") || endsWithLower(inputName, "dat") || form.formatOption == "-dat";
    const std::string stem = dropLast(outputName, 4);
    const bool wrapReplacesBlock = oneBox && wrappable && outputName == stem + (form.boxes.SPE ? ".spe" : ".spo");
    if (!wrapReplacesBlock) writeWholeFile(outputName, block);
    if (!oneBox || !wrappable) return;
    form.valueCount = fields.fieldsWritten();
    // When the wrapped file takes the block's place, the block is written
    // only if wrapping cannot go ahead, so the file holds what it would have.
    WrapTimes times;
    try {
        times = readWrapTimes(inputName, block);
    } catch (...) {
        if (wrapReplacesBlock) writeWholeFile(outputName, block);
        throw;
    }
    writeWrapped(form, inputName, times, std::move(block), stem);
}

std::string spectrumOutputPath(const Session& form, const std::string& inputPath) {
    return dropLast(inputPath, 4) + form.outputExtension();
}

std::string dropLast(const std::string& text, size_t count) {
    return text.substr(0, text.size() >= count ? text.size() - count : 0);
}

bool endsWithLower(const std::string& name, std::string_view suffix) {
    if (name.size() < suffix.size()) return false;
    for (size_t i = 0; i < suffix.size(); ++i)
        if (std::tolower(static_cast<unsigned char>(name[name.size() - suffix.size() + i])) != suffix[i]) return false;
    return true;
}

}  // namespace kestro
