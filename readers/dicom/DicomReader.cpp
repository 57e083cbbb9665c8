// Reader of DICOM files, parsed by DCMTK: a ".hdr" listing of every data
// element with its name, and an ".odf" of the data the file carries (see
// DicomColumns.cpp).
#include <dcmtk/config/osconfig.h>
#include <dcmtk/dcmdata/dcdict.h>
#include <dcmtk/dcmdata/dcfilefo.h>
#include <dcmtk/dcmdata/dcmetinf.h>
#include <dcmtk/dcmdata/dcrledrg.h>
#include <dcmtk/dcmdata/dcsequen.h>
#include <dcmtk/dcmjpeg/djdecode.h>
#include <dcmtk/dcmjpls/djdecode.h>
#include <dcmtk/oflog/oflog.h>

#include <pthread.h>

#include <algorithm>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "core/runtime/NumberText.h"
#include "readers/Readers.h"
#include "readers/dicom/DicomColumns.h"
#include "readers/dicom/DicomTags.h"

namespace kestro {

namespace {

constexpr int OutputNumber = 2;
constexpr int HeaderNumber = 3;

// Values longer than this are kept in the file until asked for; the listing
// shows long binary values by their length only.
constexpr Uint32 LazyValueBytes = 4096;
constexpr Uint32 LongestListedBinary = 64;
// Deeper items are indented as this level: real files nest a few levels,
// and a crafted one must not make the listing grow with the square of its depth.
constexpr int DeepestIndent = 64;

// DCMTK's global state, set once: no log output on the console, its data
// dictionary loaded (from the files the package installs when the default
// path does not lead to one), and the decoders of compressed pixel data.
void prepareDcmtk() {
    static const bool ready = [] {
        OFLog::configure(OFLogger::OFF_LOG_LEVEL);
        if (!dcmDataDict.isDictionaryLoaded()) {
            DcmDataDictionary& dictionary = dcmDataDict.wrlock();
            const std::string paths = DCM_DICT_DEFAULT_PATH;
            for (size_t start = 0; start <= paths.size();) {
                size_t end = paths.find(ENVIRONMENT_PATH_SEPARATOR, start);
                if (end == std::string::npos) end = paths.size();
                dictionary.loadDictionary(paths.substr(start, end - start).c_str(), OFFalse);
                start = end + 1;
            }
            dcmDataDict.wrunlock();
        }
        DcmRLEDecoderRegistration::registerCodecs();
        DJDecoderRegistration::registerCodecs();
        DJLSDecoderRegistration::registerCodecs();
        return true;
    }();
    (void)ready;
}

std::string hex4(uint16_t n) {
    const std::string digits = hexText(n, 16);
    return std::string(4 - digits.size(), '0') + digits;
}

bool isBinary(DcmEVR vr) {
    switch (vr) {
    case EVR_OB: case EVR_OW: case EVR_OF: case EVR_OD: case EVR_OL: case EVR_OV:
    case EVR_UN: case EVR_ox: case EVR_px: case EVR_pixelSQ: case EVR_lt:
        return true;
    default:
        return false;
    }
}

class Listing {
public:
    Listing(TextWriter& out, const DicomTagTable& tags) : out_(out), tags_(tags) {}

    void items(DcmItem& item, int depth) {
        for (DcmObject* o = item.nextInContainer(nullptr); o; o = item.nextInContainer(o)) element(*o, depth);
    }

private:
    void element(DcmObject& object, int depth) {
        DcmTag& tag = const_cast<DcmTag&>(object.getTag());
        std::string& line = out_.buffer();
        line.append(static_cast<size_t>(2 * std::min(depth, DeepestIndent)), ' ');
        line += '(' + hex4(tag.getGTag()) + ',' + hex4(tag.getETag()) + ") ";
        line += DcmVR(object.getVR()).getValidVRName();
        line += ' ';
        line += tags_.listedName(tag);
        line += " = ";
        if (object.ident() == EVR_SQ) {
            auto& sequence = static_cast<DcmSequenceOfItems&>(object);
            const unsigned long count = sequence.card();
            line += '<' + plainText(static_cast<int64_t>(count)) + (count == 1 ? " item>" : " items>");
            line += "\r\n";
            for (DcmObject* i = sequence.nextInContainer(nullptr); i; i = sequence.nextInContainer(i))
                items(static_cast<DcmItem&>(*i), depth + 1);
        } else {
            value(static_cast<DcmElement&>(object), line);
            line += "\r\n";
        }
        out_.flushIfFull();
    }

    static void value(DcmElement& element, std::string& line) {
        const Uint32 length = element.getLength();
        if (isBinary(element.getVR()) && length > LongestListedBinary) {
            line += '<' + plainText(static_cast<int64_t>(length)) + " bytes>";
            return;
        }
        OFString text;
        if (element.getOFStringArray(text).good()) line.append(text.c_str(), text.size());
    }

    TextWriter& out_;
    const DicomTagTable& tags_;
};

std::string stemOf(const std::string& fileName) {
    const size_t dot = fileName.rfind('.');
    return dot == std::string::npos ? fileName : fileName.substr(0, dot);
}

// DCMTK reads, lists and frees nested sequences by recursion, one level of
// the stack for every nesting level, which a crafted file can make deep
// enough to overflow any fixed stack. Each level needs an item, so the items
// a file can hold bound the depth: the reader runs on a thread whose stack
// has room for that many levels.
constexpr uint64_t StackBase = 16u << 20;
constexpr uint64_t StackPerItem = 4096;  // a nesting level's frames, with room to spare
constexpr uint64_t LargestStack = uint64_t{4} << 30;

// The item tags (FFFE,E000) a file holds, in either byte order: a bound on
// its nesting depth, found without reading the file as DICOM.
uint64_t itemTagsIn(const std::string& path) {
    std::FILE* f = std::fopen(path.c_str(), "rb");
    if (!f) return 0;
    std::vector<unsigned char> block(1 << 20);
    uint64_t items = 0;
    unsigned char last[3] = {0, 0, 0};  // the bytes before the block
    size_t got;
    while ((got = std::fread(block.data(), 1, block.size(), f)) > 0) {
        auto at = [&](size_t i) -> unsigned char { return i < 3 ? last[i] : block[i - 3]; };
        for (size_t i = 0; i < got; ++i) {
            if (at(i) == 0xFE && at(i + 1) == 0xFF && at(i + 2) == 0x00 && at(i + 3) == 0xE0) ++items;
            else if (at(i) == 0xFF && at(i + 1) == 0xFE && at(i + 2) == 0xE0 && at(i + 3) == 0x00) ++items;
        }
        for (size_t k = 0; k < 3; ++k) last[k] = at(got + k);
    }
    std::fclose(f);
    return items;
}

// The stack that reading this file needs; 0 when more than the largest.
uint64_t stackFor(const std::string& path) {
    std::error_code ec;
    const uint64_t size = std::filesystem::file_size(path, ec);
    // An item takes 8 bytes at least; a small file cannot nest deeply.
    uint64_t items = ec ? 0 : size / 8;
    if (StackBase + items * StackPerItem > 4 * StackBase) items = itemTagsIn(path);
    if (items > (LargestStack - StackBase) / StackPerItem) return 0;
    return StackBase + items * StackPerItem;
}

// Runs `work` on a thread with that stack and waits for it; what it throws
// is thrown here.
void runWithStack(uint64_t stackBytes, const std::function<void()>& work) {
    struct Job {
        const std::function<void()>& work;
        std::exception_ptr thrown;
    } job{work, nullptr};
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setstacksize(&attributes, static_cast<size_t>(stackBytes));
    pthread_t thread;
    const int failed = pthread_create(
        &thread, &attributes,
        [](void* j) -> void* {
            auto& job = *static_cast<Job*>(j);
            try {
                job.work();
            } catch (...) {
                job.thrown = std::current_exception();
            }
            return nullptr;
        },
        &job);
    pthread_attr_destroy(&attributes);
    if (failed) throw std::bad_alloc();
    pthread_join(thread, nullptr);
    if (job.thrown) std::rethrow_exception(job.thrown);
}

// What a file gave that is to be shown: a refusal, or a warning after its outputs.
struct Outcome {
    std::string refusal;
    std::string warning;
};

Outcome readDicom(Session& form, const std::string& fileName, const DicomTagTable& tags) {
    DcmFileFormat file;
    const OFCondition loaded = file.loadFile(fileName.c_str(), EXS_Unknown, EGL_noChange, LazyValueBytes,
                                             ERM_autoDetect);
    if (loaded.bad() || file.getDataset()->card() == 0)
        return {loaded.bad() ? loaded.text() : "it holds no data elements", ""};
    const std::string stem = stemOf(fileName);
    TextWriter& header = form.files.openOutput(HeaderNumber, stem + ".hdr");
    Listing listing(header, tags);
    listing.items(*file.getMetaInfo(), 0);
    listing.items(*file.getDataset(), 0);
    form.files.close(HeaderNumber);
    return {"", writeDicomColumns(form, *file.getDataset(), fileName, OutputNumber, stem + ".odf")};
}

}  // namespace

void ConvFileDICoM(Session& form, std::string& fileName) {
    prepareDcmtk();
    const DicomTagTable& tags = currentDicomTags(form);
    Outcome outcome;
    if (const uint64_t stack = stackFor(fileName))
        runWithStack(stack, [&] { outcome = readDicom(form, fileName, tags); });
    else
        outcome.refusal = "it holds more sequence items than Kestro can read";
    // Boxes are shown from the caller's thread, which a window needs.
    if (!outcome.refusal.empty())
        form.host().messageBox("Not a DICOM file: " + outcome.refusal, BoxIcon::Critical, BoxButtons::Ok);
    else if (!outcome.warning.empty())
        form.host().messageBox(outcome.warning, BoxIcon::Exclamation, BoxButtons::Ok);
}

}  // namespace kestro
