#include "batch/Driver.h"

#include <cctype>
#include <new>

#include "core/RunOutputGuard.h"
#include "core/Writers.h"
#include "core/runtime/Files.h"
#include "core/runtime/NumberText.h"
#include "core/runtime/RuntimeError.h"
#include "core/runtime/TextInput.h"
#include "readers/Readers.h"

namespace kestro {

namespace {

// One queued file on its way through the driver.
struct FileJob {
    std::string name;       // full path; a reader may leave the name of the file it wrote
    std::string shownName;  // as the queue shows it
    std::string extension;  // lower case, after the last "."
    std::string odfName;    // the name up to its last "." and ".odf"
};

FileJob prepareJob(const std::string& fullName, const std::string& shownName) {
    FileJob job{fullName, shownName, "", fullName + ".odf"};
    size_t dot = fullName.rfind('.');
    if (dot != std::string::npos) {
        for (size_t i = dot + 1; i < fullName.size(); ++i)
            job.extension += static_cast<char>(std::tolower(static_cast<unsigned char>(fullName[i])));
        job.odfName = fullName.substr(0, dot) + ".odf";
    }
    return job;
}

// What follows a reader.
enum class Then {
    EndRun,               // the reader dealt with everything ("csv")
    Pass,                 // two-column pass, then the plot stage
    Plot,                 // the plot stage only
    PassUnlessRefused,    // readerStatus 7 ends the run
    PassUnlessQueueDone,  // readerStatus 1 ends the loop, all files finished
    RefuseOption,         // the run ends with the reader's message
};

// How many leading lines the two-column pass discards.
enum class Skip {
    Zero,
    SpectrumHeader,  // 8 x SPE + SPO: the header of the SPE or SPO file the reader wrote
    Previous,        // whatever the previous file used
    ThroughSpeData,  // the lines up to "$DATA:" and the channel-range line after it
    Fixed,
};

using Reader = void (*)(Session&, FileJob&);

struct Route {
    const char* keys[2];     // extensions (or a format option)
    Reader read;             // none for plain channel-data text
    Then then;
    Skip skip;
    int fixedSkip;
    Reader modern = nullptr; // instead of `read` when "Modern readers" is ticked
};

void refuseDatOption(Session& form, FileJob&) {
    form.host().messageBox("Option no longer supported! Set the SPE/SPO appropriate selection and try again!!",
                           BoxIcon::Critical, BoxButtons::Ok);
}

void uncheckPlot(Session& form) {
    form.changeBoxes([](Boxes& b) { b.DsGr = false; });
}

// The RAW readers write no spectrum file; SPE comes back once they are done.
void withoutSpe(Session& form, FileJob& job, void (*read)(Session&, std::string&)) {
    const bool spe = form.boxes.SPE;
    form.changeBoxes([](Boxes& b) { b.SPE = false; });
    read(form, job.name);
    form.changeBoxes([spe](Boxes& b) { b.SPE = spe; });
}

// A modern reader that splits a file into several ".odf" files leaves the
// first one's name: the report and the plot show that one.
void keepFirstOdf(FileJob& job) {
    if (endsWithLower(job.name, ".odf")) job.odfName = job.name;
}

void readModern(Session& form, FileJob& job, void (*read)(Session&, std::string&)) {
    read(form, job.name);
    keepFirstOdf(job);
}

// Tested top to bottom, first match wins; the order is part of the behaviour.
const Route extensionRoutes[] = {
    {{"csv"}, [](Session& f, FileJob& j) { ExtrCSV(f, j.name); }, Then::EndRun, Skip::Zero, 0},
    {{"dxp"}, [](Session& f, FileJob& j) { ConvDXP(f, j.name); }, Then::Pass, Skip::Zero, 0},
    {{"evt"}, [](Session& f, FileJob& j) { ConvEVT(f, j.name); }, Then::Pass, Skip::Zero, 0},
    {{"_"}, [](Session& f, FileJob& j) { ConvOMDAQ(f, j.name); }, Then::PassUnlessRefused, Skip::SpectrumHeader, 0},
    {{"raw"}, [](Session& f, FileJob& j) { withoutSpe(f, j, ConvAXSraw); }, Then::Plot, Skip::Zero, 0,
     [](Session& f, FileJob& j) {
         withoutSpe(f, j, ConvAXSrawModern);
         keepFirstOdf(j);
     }},
    {{"spu"}, [](Session& f, FileJob& j) { ConvSpec(f, j.name); }, Then::Pass, Skip::Zero, 0},
    {{"cnf"}, [](Session& f, FileJob& j) { ConvFile(f, j.name); }, Then::PassUnlessQueueDone, Skip::SpectrumHeader, 0,
     [](Session& f, FileJob& j) { ConvCnfFileModern(f, j.name); }},
    {{"mpa", "mp"}, [](Session& f, FileJob& j) { ConvMpaFile(f, j.name, j.shownName); }, Then::Plot, Skip::Zero, 0,
     [](Session& f, FileJob& j) { ConvMpaFileModern(f, j.name, j.shownName); }},
    {{"bin"}, [](Session& f, FileJob& j) { ConvFileOld(f, j.name); }, Then::Pass, Skip::Previous, 0},
    {{"mca"},
     [](Session& f, FileJob& j) {
         if (f.formatOption == "S100") ConvS100File(f, j.name);
         else ConvS35sFile(f, j.name);
     },
     Then::Pass, Skip::Zero, 0},
    {{"chn"}, [](Session& f, FileJob& j) { ConvChnFile(f, j.name); }, Then::Pass, Skip::SpectrumHeader, 0},
    {{"spx"}, [](Session& f, FileJob& j) { ConvFileXML(f, j.name); }, Then::Pass, Skip::SpectrumHeader, 0,
     [](Session& f, FileJob& j) { ConvFileXMLModern(f, j.name); }},
    {{"xml"}, [](Session& f, FileJob& j) { ConvFileG_XML(f, j.name); }, Then::Plot, Skip::Zero, 0},
    {{"spa"}, [](Session& f, FileJob& j) { ConvFileSPA(f, j.name); }, Then::Plot, Skip::Zero, 0,
     [](Session& f, FileJob& j) { readModern(f, j, ConvFileSPAModern); }},
    {{"spc"},
     [](Session& f, FileJob& j) {
         if (f.formatOption == "Shim_SPC") ConvShim_SPCbin(f, j.name);
         else ConvFileSPC(f, j.name);
     },
     Then::Plot, Skip::Zero, 0,
     [](Session& f, FileJob& j) {
         if (f.formatOption == "Shim_SPC") ConvShim_SPCbin(f, j.name);
         else readModern(f, j, ConvFileSPCModern);
     }},
    {{"gaml"}, [](Session& f, FileJob& j) { ConvFileGAML(f, j.name); }, Then::Plot, Skip::Zero, 0,
     [](Session& f, FileJob& j) { readModern(f, j, ConvFileGAMLModern); }},
    {{"jdx", "dx"}, [](Session& f, FileJob& j) { ConvFileJCAMP(f, j.name); }, Then::Plot, Skip::Zero, 0,
     [](Session& f, FileJob& j) { readModern(f, j, ConvFileJCAMPModern); }},
    {{"dcm"},
     [](Session& f, FileJob& j) {
         ConvFileDICoM(f, j.name);
         uncheckPlot(f);
     },
     Then::Plot, Skip::Zero, 0},
    {{"rd"}, [](Session& f, FileJob& j) { ConvPANrd(f, j.name); }, Then::Plot, Skip::Zero, 0},
    {{"spe"}, nullptr, Then::Pass, Skip::ThroughSpeData, 0},
    // The fixed header lengths of these text formats are kept as they always were.
    {{"asc"}, nullptr, Then::Pass, Skip::Fixed, 54},
    {{"rbs", "sim"}, nullptr, Then::Pass, Skip::Fixed, 12},
    {{"dat"}, nullptr, Then::Pass, Skip::Zero, 0},
    {{"odf"},
     [](Session& f, FileJob& j) {
         if (f.boxes.cOMDAQ) Conv2OMDAQ(f, j.name);
         else if (f.boxes.cDXP) Conv2DXP(f, j.name);
         else ConvOdf(f, j.name, spectrumOutputPath(f, j.name));
     },
     Then::Plot, Skip::Zero, 0},
};

// When no extension matches, the format option decides, in this order.
const Route optionRoutes[] = {
    {{"-dat"}, refuseDatOption, Then::RefuseOption, Skip::Zero, 0},
    {{"OMD"}, [](Session& f, FileJob& j) { ConvOMDAQ(f, j.name); }, Then::PassUnlessRefused, Skip::SpectrumHeader, 0},
    {{"ATA"}, [](Session& f, FileJob& j) { ConvATA_b(f, j.name); }, Then::Plot, Skip::Zero, 0},
    {{"DICOM"},
     [](Session& f, FileJob& j) {
         ConvFileDICoM(f, j.name);
         uncheckPlot(f);
     },
     Then::Plot, Skip::Zero, 0},
    {{"Shim_PHO"},
     [](Session& f, FileJob& j) {
         ConvShim_PHObin(f, j.name);
         uncheckPlot(f);
     },
     Then::Plot, Skip::Zero, 0},
};

// Any other option: the user decides whether to read the file as channel data.
const Route unknownOptionRoute = {{nullptr}, nullptr, Then::Pass, Skip::Zero, 0};

template <size_t N>
const Route* findRoute(const Route (&routes)[N], const std::string& key) {
    for (const Route& r : routes)
        for (const char* k : r.keys)
            if (k && key == k) return &r;
    return nullptr;
}

const Route* routeFor(const Session& form, const FileJob& job) {
    if (const Route* r = findRoute(extensionRoutes, job.extension)) return r;
    if (const Route* r = findRoute(optionRoutes, form.formatOption)) return r;
    return &unknownOptionRoute;
}

bool proceedWithUnknownOption(Session& form) {
    Answer a = form.host().messageBox("WARNING: format option not recognized! Conversion may be awkward, proceed?",
                                      BoxIcon::None, BoxButtons::YesNo);
    form.formatOption = "";
    return a == Answer::Yes;
}

// ---- the two-column pass ----

int64_t linesThroughSpeData(TextReader& input) {
    int64_t lines = 0;
    while (!input.eof()) {
        ++lines;
        if (input.lineInput().substr(0, 6) == "$DATA:") break;
    }
    input.seek(1);
    return lines + 1;
}

// Two-column input: the second column of each line, rounded to a whole
// number, as a data block.
void writeRoundedColumn(Session& form, TextReader& input, TextWriter& out) {
    DataBlock block(out.buffer());
    std::string withPoints;
    while (!input.eof()) {
        std::string_view line = input.lineInput();
        if (line.size() < 2 || !std::isdigit(static_cast<unsigned char>(line[1]))) break;
        if (line.find(',') != std::string_view::npos) {
            withPoints.assign(line);
            for (char& c : withPoints)
                if (c == ',') c = '.';
            line = withPoints;
        }
        line.remove_prefix(std::min(line.find_first_not_of(' '), line.size()));
        size_t separator = line.find_first_of(" \t");
        std::string_view y = separator == std::string_view::npos ? line : line.substr(separator + 1);
        block.field(static_cast<int64_t>(roundToInt32(leadingNumber(y))));
        out.flushIfFull();
    }
    form.valueCount = block.fieldsWritten();
}

// Channel-data text: one line of channel and value for every value up to
// the next "$" section.
void writeChannelPairs(Session& form, TextReader& input, TextWriter& out) {
    std::string& text = out.buffer();
    // Lines of whole counts, by far the most common, are built in a local
    // block and handed to the writer a block at a time.
    constexpr size_t BlockSize = 1 << 16;
    constexpr size_t LongestLine = 64;
    char block[BlockSize];
    char* end = block;
    auto handOver = [&] {
        text.append(block, static_cast<size_t>(end - block));
        end = block;
        out.flushIfFull();
    };
    CountingPrintItems channel;
    for (;;) {
        // A blank line holds no value: it gets no channel.
        input.skipBlanksAndLineEnds();
        if (input.eof()) break;
        bool quoted;
        std::string_view field = input.listField(quoted);
        if (end > block + BlockSize - LongestLine) handOver();
        char* lineStart = end;
        end = channel.write(end);
        char* item = quoted ? nullptr : writePrintItemOfPlainText(end, field);
        int64_t whole;
        if (item || (!quoted && parseDecimalDigits(field, whole))) {
            end = item ? item : writePrintItem(end, whole);
            *end++ = '\r';
            *end++ = '\n';
        } else {
            Value v = TextReader::fieldValue(field, quoted);
            if (v.isText() && !v.text.empty() && v.text[0] == '$') {
                end = lineStart;
                break;
            }
            handOver();
            appendPrintItem(text, v);
            text += "\r\n";
        }
        channel.next();
    }
    handOver();
    form.valueCount = channel.value();
}

// A ".dat" data block wrapped as SPE or SPO beside the ".odf".
void wrapDatInput(Session& form, const FileJob& job, std::string input) {
    if (form.formatOption == "-dat") {
        writeWholeFile(job.odfName, input);
        form.valueCount = static_cast<int64_t>(input.size()) / DataLineBytes * FieldsPerLine;
    }
    wrapDataBlock(form, job.name, std::move(input), dropLast(job.odfName, 4));
}

// Returns the number of lines skipped.
int64_t twoColumnPass(Session& form, const FileJob& job, int64_t skip, bool skipThroughSpeData) {
    // Only a ".dat" input to be wrapped is needed whole; any other streams,
    // so that an event list's text larger than memory goes through.
    const bool wrapDat = endsWithLower(job.name, "dat") && form.boxes.SPE != form.boxes.SPO;
    TextReader input = wrapDat ? TextReader(readTextFile(job.name)) : TextReader::streaming(job.name);
    if (skipThroughSpeData) skip = linesThroughSpeData(input);
    TextWriter out(job.odfName);
    for (int64_t k = 0; k < skip; ++k) input.lineInput();
    const bool odfInput = endsWithLower(job.name, "odf");
    if (form.formatOption == "-dat" || odfInput) {
        if (odfInput) writeRoundedColumn(form, input, out);
    } else {
        writeChannelPairs(form, input, out);
    }
    out.close();
    if (wrapDat) wrapDatInput(form, job, input.release());
    return skip;
}

// ---- the plot stage ----

void plotStage(Session& form, const FileJob& job) {
    if (!form.boxes.DsGr) return;
    const PlotPoints points = readPlotPoints(job.odfName);
    Host& host = form.host();
    host.plot(points, static_cast<int64_t>(points.size()), job.odfName);
    host.applyScale(form.boxes.LogScale);
    host.wait(1);
}

// ---- the run's record ----

const char* boxCaption(bool Boxes::*box) {
    if (box == &Boxes::DsGr) return "GRAPH";
    if (box == &Boxes::LogScale) return "LOG";
    if (box == &Boxes::SPE) return "SPE";
    return "SPO";
}

// Stands between the engine and the front end for one run: keeps what each
// file wrote and the message that stopped it in the Session's run log.
class RunRecorder final : public Host, public OutputObserver {
public:
    explicit RunRecorder(Session& form) : form_(form), frontEnd_(form.replaceHost(*this)), observing_(this) {
        RunLog& log = form.runLog;
        log = RunLog{};
        for (const std::string& name : form.List1) {
            log.files.emplace_back();
            log.files.back().name = name;
        }
        log.notes = std::move(form.boxNotes);
        form.boxNotes.clear();
    }
    ~RunRecorder() override {
        form_.replaceHost(frontEnd_);
        form_.runLog.currentIndex = static_cast<size_t>(-1);
    }
    RunRecorder(const RunRecorder&) = delete;
    RunRecorder& operator=(const RunRecorder&) = delete;

    void starting(size_t index) {
        form_.runLog.currentIndex = index;
        boxesBefore_ = form_.boxes;
        stopped_ = false;
    }
    // The file went through: converted, unless it was refused (a critical
    // message, or a message and nothing written).
    void finished() {
        RunLogFile* file = form_.runLog.current();
        if (!file) return;
        file->state = stopped_ || (!file->message.empty() && file->outputs.empty()) ? RunLogFile::State::Failed
                                                                                   : RunLogFile::State::Converted;
        noteBoxChanges(*file);
        form_.runLog.currentIndex = static_cast<size_t>(-1);
    }
    void failed(const std::string& message) {
        if (RunLogFile* file = form_.runLog.current()) {
            if (!message.empty()) file->message = message;
            stopped_ = true;
            finished();
        }
    }
    // Files the reader dealt with on its own count as converted.
    void restConverted(size_t from) {
        auto& files = form_.runLog.files;
        for (size_t i = from; i < files.size(); ++i) files[i].state = RunLogFile::State::Converted;
    }

    // OutputObserver
    void outputOpened(const std::string& path, OutputFile::Mode) override {
        RunLogFile* file = form_.runLog.current();
        if (!file) return;
        for (const std::string& known : file->outputs)
            if (known == path) return;
        file->outputs.push_back(path);
    }

    // Host: all passed on; message boxes are also kept.
    void showStatus(const std::string& text, StatusColour colour) override { frontEnd_.showStatus(text, colour); }
    void showProgress(int value) override { frontEnd_.showProgress(value); }
    void beep() override { frontEnd_.beep(); }
    Answer messageBox(const std::string& text, BoxIcon icon, BoxButtons buttons) override {
        if (RunLogFile* file = form_.runLog.current()) {
            file->message = text;
            if (icon == BoxIcon::Critical) stopped_ = true;
        }
        return frontEnd_.messageBox(text, icon, buttons);
    }
    void plot(const PlotPoints& points, int64_t count, const std::string& name) override {
        frontEnd_.plot(points, count, name);
    }
    void applyScale(bool logarithmic) override { frontEnd_.applyScale(logarithmic); }
    void wait(double seconds) override { frontEnd_.wait(seconds); }
    void boxesChanged() override { frontEnd_.boxesChanged(); }
    void queueChanged() override { frontEnd_.queueChanged(); }
    void startingFile(size_t index, size_t count, const std::string& name) override {
        frontEnd_.startingFile(index, count, name);
    }
    void runLogged(const RunLog& log) override { frontEnd_.runLogged(log); }

private:
    // A box the reader changed and left changed (the RAW readers' SPE comes back).
    void noteBoxChanges(const RunLogFile& file) {
        for (bool Boxes::*box : {&Boxes::SPE, &Boxes::SPO, &Boxes::DsGr, &Boxes::LogScale}) {
            if (form_.boxes.*box == boxesBefore_.*box) continue;
            form_.runLog.notes.push_back(std::string(boxCaption(box)) + (form_.boxes.*box ? " ticked" : " unticked") +
                                         " by the reader of " + file.name);
        }
    }

    Session& form_;
    Host& frontEnd_;
    ObservingOutputs observing_;
    Boxes boxesBefore_;
    bool stopped_ = false;
};

// The error line of the write-failure message, and what the number most
// often means for the input.
std::string errorForLog(int number, const std::string& description) {
    std::string text = "Error " + std::to_string(number) + " " + description;
    if (number == err::InputPastEnd || number == err::BadRecordNumber)
        text += ": the file ends before its contents do (damaged or cut short)";
    else if (number == err::PathFileAccess)
        text += ": a file could not be read or written (locked, or no permission in the folder)";
    return text;
}

// ---- the run ----

enum class Next { NextFile, LeaveLoop, EndRun };

struct RunState {
    int64_t previousSkip = 0;  // the ".bin" row uses what the file before it used
    RunOutcome outcome = RunOutcome::Finished;
};

Next convertOne(Session& form, FileJob& job, RunState& state) {
    const Route& route = *routeFor(form, job);
    if (&route == &unknownOptionRoute && !proceedWithUnknownOption(form)) {
        form.clearQueue();
        state.outcome = RunOutcome::Declined;
        return Next::EndRun;
    }
    const Reader read = form.boxes.ModernRead && route.modern ? route.modern : route.read;
    if (read) read(form, job);
    switch (route.then) {
    case Then::EndRun: state.outcome = RunOutcome::EndedByReader; return Next::EndRun;
    case Then::RefuseOption: state.outcome = RunOutcome::OptionRefused; return Next::EndRun;
    case Then::PassUnlessRefused:
        if (form.readerStatus == 7) {
            form.readerStatus = 0;
            state.outcome = RunOutcome::ReaderRefused;
            return Next::EndRun;
        }
        break;
    case Then::PassUnlessQueueDone:
        if (form.readerStatus == 1) {
            form.readerStatus = 0;
            return Next::LeaveLoop;
        }
        break;
    case Then::Pass:
    case Then::Plot: break;
    }
    if (route.then != Then::Plot) {
        int64_t skip = 0;
        switch (route.skip) {
        case Skip::Zero:
        case Skip::ThroughSpeData: break;
        case Skip::SpectrumHeader: skip = 8 * form.boxes.SPE + form.boxes.SPO; break;
        case Skip::Previous: skip = state.previousSkip; break;
        case Skip::Fixed: skip = route.fixedSkip; break;
        }
        state.previousSkip = twoColumnPass(form, job, skip, route.skip == Skip::ThroughSpeData);
    }
    plotStage(form, job);
    return Next::NextFile;
}

void reportFile(Session& form, const FileJob& job, size_t index, size_t count) {
    form.host().showStatus(job.odfName + " done", StatusColour::Blue);
    form.host().showProgress(static_cast<int>((index + 1) * 100 / count));
}

RunOutcome finishRun(Session& form, size_t filesHandled) {
    Host& host = form.host();
    host.beep();
    if (filesHandled == 0) {
        host.showStatus("Add files first !", StatusColour::Red);
        return RunOutcome::NothingQueued;
    }
    host.showStatus("Finished " + std::to_string(filesHandled) + " files", StatusColour::Blue);
    host.wait(1);
    form.clearQueue();
    host.showProgress(0);
    return RunOutcome::Finished;
}

RunOutcome runBatch(Session& form, RunRecorder& record, RunOutputGuard& guard) {
    const size_t count = form.List1.size();
    RunState state;
    size_t i = 0;
    for (; i < count; ++i) {
        form.host().startingFile(i, count, form.List1.at(i));
        record.starting(i);
        guard.startingFile(i);
        FileJob job = prepareJob(form.List2.at(i), form.List1.at(i));
        const Next next = convertOne(form, job, state);
        if (next == Next::EndRun) {
            if (state.outcome == RunOutcome::EndedByReader) record.finished();
            else record.failed("");
            return state.outcome;
        }
        record.finished();
        if (next == Next::LeaveLoop) {
            record.restConverted(i + 1);
            i = count;
            break;
        }
        reportFile(form, job, i, count);
    }
    return finishRun(form, i);
}

RunOutcome handleFailure(Session& form, RunRecorder& record, int number, const std::string& description) {
    // The record keeps the error itself, not the box around it.
    record.failed(errorForLog(number, description));
    form.host().messageBox(writeFailureMessage(number, description), BoxIcon::Information, BoxButtons::Ok);
    form.clearQueue();
    form.host().showProgress(0);
    return RunOutcome::ErrorHandled;
}

RunOutcome runHandlingFailures(Session& form, RunRecorder& record, RunOutputGuard& guard) {
    try {
        return runBatch(form, record, guard);
    } catch (const RuntimeError& e) {
        return handleFailure(form, record, e.number(), e.description());
    } catch (const std::bad_alloc&) {
        return handleFailure(form, record, err::OutOfMemory, errorDescription(err::OutOfMemory));
    } catch (const std::length_error&) {
        return handleFailure(form, record, err::OutOfMemory, errorDescription(err::OutOfMemory));
    }
}

}  // namespace

std::string writeFailureMessage(int number, const std::string& description) {
    const bool accessError = number == err::PathFileAccess;
    std::string text = accessError ? "! CHECK PATH/FOLDER USERS PERMISSIONS !\n" : "! CHECK FOR ERROR !\n";
    text += "Error " + std::to_string(number) + " " + description + " in 'ODF writing'" + std::string(7, ' ') + "\n\n";
    if (accessError) text += "PROBABLY LOCKED FOR WRITING\nUNLOCK IT or CHOOSE a DIFFERENT FOLDER!";
    return text;
}

PlotPoints readPlotPoints(const std::string& odfName) {
    TextReader odf(readTextFile(odfName));
    int64_t rows = 0;
    while (!odf.eof()) {
        odf.lineInput();
        ++rows;
    }
    odf.seek(1);
    PlotPoints points;
    points.reserve(static_cast<size_t>(rows));
    for (int64_t r = 0; r < rows; ++r) {
        double x = odf.listInputNumber();
        double y = odf.listInputNumber();
        points.push_back({x, y});
    }
    return points;
}

RunOutcome RunCode_Click(Session& form) {
    ++form.runNumber;
    // Every output of the run, the files a failed reader left open included,
    // is written and closed under the guard's eye.
    RunOutputGuard guard(form, systemTrash());
    GuardingOutputs guarding(&guard);
    // Files a reader left open (a failed one always does) would block the
    // next run with "File already open": the run ends with none open. The
    // record goes to the front end however the run ends.
    auto endRun = [&form] {
        form.files.closeAllQuietly();
        form.host().runLogged(form.runLog);
    };
    RunOutcome outcome;
    try {
        RunRecorder record(form);
        try {
            outcome = runHandlingFailures(form, record, guard);
        } catch (...) {
            record.failed("stopped by an unexpected error");
            throw;
        }
    } catch (...) {
        endRun();
        throw;
    }
    endRun();
    return outcome;
}

}  // namespace kestro
