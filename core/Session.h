#pragma once
// The form-level values that the driver, the format table and every reader
// share, for as long as the window lives: the queue, the option token, the
// values passed from reader to driver, the output boxes, the command-line
// text, the numbered files, and the Host that shows it all.
#include <array>
#include <memory>
#include <string>
#include <vector>

#include "core/Host.h"
#include "core/RunLog.h"
#include "core/runtime/FileTable.h"
#include "core/runtime/Value.h"

namespace kestro {

struct DicomTagTable;  // readers/dicom: the tag names read from "DICOM.tags"

// The check boxes, and whether the optional ones (with their labels) show.
struct Boxes {
    bool SPE = false;
    bool SPO = false;
    bool cOMDAQ = false;
    bool cDXP = false;
    bool DsGr = false;
    bool LogScale = false;
    bool ModernRead = false;    // Kestro's own readers for the files the classic rules misread
    bool omdaqVisible = false;  // cOMDAQ and its label rOMDAQ
    bool dxpVisible = false;    // cDXP and its label rDXP
};

class Session {
public:
    explicit Session(Host& host);

    Host& host() { return *host_; }
    // Routes the engine's calls through `host` and returns the one it
    // replaces; a run puts its recorder in front of the front end this way.
    Host& replaceHost(Host& host) {
        Host& previous = *host_;
        host_ = &host;
        return previous;
    }

    // The queue: List1 holds the names as shown, List2 the full paths.
    std::vector<std::string> List1;
    std::vector<std::string> List2;
    void addToQueue(const std::string& shownName, const std::string& fullPath);
    void clearQueue();

    std::string formatOption;
    int readerStatus = 0;
    int64_t valueCount = 0;
    Value sharedRealTime;
    double CalibOff = 0;  // energy calibration offset and slope of the last spectrum
    double CalibLin = 0;
    std::array<std::string, 3> outputExt;
    // The output extension for the SPE/SPO boxes: index 2 x SPO + SPE;
    // both ticked is index 3, the "Subscript out of range" error.
    const std::string& outputExtension() const;

    Boxes boxes;
    // Changes the boxes and lets the front end show the change at once.
    template <typename Change>
    void changeBoxes(Change change) {
        change(boxes);
        host_->boxesChanged();
    }

    // The format selector's text (Combo1), the "type extension" box (Text1)
    // and the file list's pattern.
    std::string comboText;
    std::string typedText;
    std::string filePattern;

    // The program's command-line text, as the readers see it.
    std::string commandLine;

    // Outputs replace any file in place, as the classic program did, instead
    // of moving a file that Kestro did not write to the trash first.
    bool replaceInPlace = false;

    FileTable files;

    // What the last run did; cleared as the next one starts.
    RunLog runLog;
    // Boxes the format choice changed since the last run, in the words the
    // next run's record gives them.
    std::vector<std::string> boxNotes;

    // Counted up by the driver as each run starts, for what is reported once a run.
    int64_t runNumber = 0;
    // "DICOM.tags" as the DICOM reader last read it (GenInfo's numID, tagDef, hIDval).
    std::shared_ptr<DicomTagTable> dicomTags;

private:
    Host* host_;
};

}  // namespace kestro
