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

#include <string>

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
        line.append(static_cast<size_t>(2 * depth), ' ');
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

}  // namespace

void ConvFileDICoM(Session& form, std::string& fileName) {
    prepareDcmtk();
    const DicomTagTable& tags = currentDicomTags(form);
    DcmFileFormat file;
    const OFCondition loaded = file.loadFile(fileName.c_str(), EXS_Unknown, EGL_noChange, LazyValueBytes,
                                             ERM_autoDetect);
    if (loaded.bad() || file.getDataset()->card() == 0) {
        const std::string reason = loaded.bad() ? loaded.text() : "it holds no data elements";
        form.host().messageBox("Not a DICOM file: " + reason, BoxIcon::Critical, BoxButtons::Ok);
        return;
    }
    const std::string stem = stemOf(fileName);
    TextWriter& header = form.files.openOutput(HeaderNumber, stem + ".hdr");
    Listing listing(header, tags);
    listing.items(*file.getMetaInfo(), 0);
    listing.items(*file.getDataset(), 0);
    form.files.close(HeaderNumber);
    writeDicomColumns(form, *file.getDataset(), fileName, OutputNumber, stem + ".odf");
}

}  // namespace kestro
