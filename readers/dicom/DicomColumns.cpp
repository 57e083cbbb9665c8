#include "readers/dicom/DicomColumns.h"

#include <dcmtk/config/osconfig.h>
#include <dcmtk/dcmdata/dcdatset.h>
#include <dcmtk/dcmdata/dcdeftag.h>
#include <dcmtk/dcmdata/dcfcache.h>
#include <dcmtk/dcmdata/dcitem.h>
#include <dcmtk/dcmdata/dcpixel.h>
#include <dcmtk/dcmdata/dcpixseq.h>
#include <dcmtk/dcmdata/dcxfer.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <mutex>
#include <optional>
#include <vector>

#include "core/runtime/NumberText.h"
#include "readers/dicom/SiemensCsa.h"

namespace kestro {

namespace {

// A frame larger than this is not decoded (a hostile header could ask for
// gigabytes); real frames are far smaller.
constexpr Uint32 LargestFrameBytes = 256u << 20;
constexpr int64_t WidestWholeSpan = 65536;
constexpr size_t HistogramBins = 4096;

// Lines of index and value as print items, as the driver's two-column pass writes them.
class TwoColumns {
public:
    TwoColumns(Session& form, int number, const std::string& path)
        : form_(form), number_(number), out_(form.files.openOutput(number, path)) {}
    template <typename X, typename Y>
    void line(X x, Y y) {
        std::string& text = out_.buffer();
        appendPrintItem(text, x);
        appendPrintItem(text, y);
        text += "\r\n";
        out_.flushIfFull();
    }
    void close() { form_.files.close(number_); }

private:
    Session& form_;
    int number_;
    TextWriter& out_;
};

// What a data set gave: nothing (no such data), "" (written), or the
// warning to show (the data could not be decoded).
using Written = std::optional<std::string>;

std::string undecoded(const char* what, const std::string& fileName, const std::string& reason) {
    return std::string("The ") + what + " of " + fileName + " could not be decoded: " + reason;
}

// A value's bytes as stored, in little-endian order (DCMTK keeps words in
// the host's order, which is little-endian here).
std::string_view valueBytes(DcmElement& element) {
    void* data = nullptr;
    if (element.getVR() == EVR_OW) {
        Uint16* words = nullptr;
        if (element.getUint16Array(words).bad()) return {};
        data = words;
    } else if (element.getVR() == EVR_OF) {
        Float32* singles = nullptr;
        if (element.getFloat32Array(singles).bad()) return {};
        data = singles;
    } else {
        Uint8* bytes = nullptr;
        if (element.getUint8Array(bytes).bad()) return {};
        data = bytes;
    }
    return data ? std::string_view(static_cast<const char*>(data), element.getLength()) : std::string_view();
}

int64_t littleEndianSample(const char* at, int bytes, bool isSigned) {
    uint64_t raw = 0;
    std::memcpy(&raw, at, static_cast<size_t>(bytes));
    const int bits = 8 * bytes;
    if (isSigned && bits < 64 && (raw >> (bits - 1)) & 1) raw |= ~uint64_t{0} << bits;
    return static_cast<int64_t>(raw);
}

// ---- MR spectroscopy: the real part of each point of the first spectrum ----

Written writeSpectrum(Session& form, DcmItem& dataset, const std::string& fileName, int number,
                      const std::string& odfName) {
    const Float32* data = nullptr;
    unsigned long count = 0;
    if (dataset.findAndGetFloat32Array(DCM_SpectroscopyData, data, &count).bad() || !data) {
        if (form.boxes.ModernRead && dataset.tagExists(DCM_SpectroscopyData))
            return undecoded("spectroscopy data", fileName, "it holds no single-precision values");
        return std::nullopt;
    }
    OFString representation;
    dataset.findAndGetOFString(DCM_DataRepresentation, representation);
    const unsigned long stride = representation.empty() || representation == "COMPLEX" ? 2 : 1;
    unsigned long points = count / stride;
    Uint32 columns = 0;
    if (dataset.findAndGetUint32(DCM_DataPointColumns, columns).good() && columns > 0 && columns < points)
        points = columns;
    TwoColumns out(form, number, odfName);
    for (unsigned long i = 0; i < points; ++i) out.line(static_cast<int64_t>(i), data[i * stride]);
    out.close();
    return "";
}

// ---- Siemens MR spectroscopy: complex Singles in a private block ----

std::string_view trimmedText(const OFString& text) {
    std::string_view t(text.c_str(), text.size());
    while (!t.empty() && (t.back() == ' ' || t.back() == '\0')) t.remove_suffix(1);
    while (!t.empty() && t.front() == ' ') t.remove_prefix(1);
    return t;
}

// Element `low` of the private block that `creator` reserves in `group`.
// Blocks are found by their creator text: the block number (xx in
// (gggg,xx10)) differs from scanner to scanner.
DcmElement* privateElement(DcmItem& dataset, Uint16 group, std::string_view creator, Uint8 low) {
    for (DcmObject* o = dataset.nextInContainer(nullptr); o; o = dataset.nextInContainer(o)) {
        const DcmTagKey key = o->getTag();
        if (key.getGroup() != group || key.getElement() < 0x10 || key.getElement() > 0xFF) continue;
        // A creator is a short text (LO, 64 characters at most): longer values are not read as text.
        if (o->getLength() > 64) continue;
        OFString text;
        if (static_cast<DcmElement*>(o)->getOFString(text, 0).bad() || trimmedText(text) != creator) continue;
        DcmElement* element = nullptr;
        const Uint16 data = static_cast<Uint16>(key.getElement() << 8 | low);
        if (dataset.findAndGetElement(DcmTagKey(group, data), element).good()) return element;
    }
    return nullptr;
}

// The number of points of a spectrum, from the image's CSA header, else the
// series'; 0 with the reason when neither gives one.
uint64_t siemensPointCount(DcmItem& dataset, std::string& problem) {
    for (const Uint8 low : {Uint8{0x10}, Uint8{0x20}}) {
        DcmElement* header = privateElement(dataset, 0x0029, "SIEMENS CSA HEADER", low);
        if (!header) continue;
        const CsaItem columns = findCsaItem(valueBytes(*header), "DataPointColumns");
        if (!columns.found) {
            if (problem.empty()) problem = columns.problem;
            continue;
        }
        // A whole number, though some headers write it as a decimal ("2048.00000000").
        uint64_t count = 0;
        for (const char c : columns.text) {
            if (c < '0' || c > '9') break;
            count = count * 10 + static_cast<uint64_t>(c - '0');
            if (count > (uint64_t{1} << 40)) break;
        }
        if (count > 0) return count;
        problem = "DataPointColumns is \"" + columns.text + "\"";
        return 0;
    }
    if (problem.empty()) problem = "no CSA header gives DataPointColumns";
    return 0;
}

Written writeSiemensSpectrum(Session& form, DcmItem& dataset, const std::string& fileName, int number,
                             const std::string& odfName) {
    if (!form.boxes.ModernRead) return std::nullopt;
    DcmElement* element = privateElement(dataset, 0x7FE1, "SIEMENS CSA NON-IMAGE", 0x10);
    if (!element) return std::nullopt;
    std::string problem;
    const uint64_t points = siemensPointCount(dataset, problem);
    if (points == 0) return undecoded("Siemens spectroscopy data", fileName, problem);
    // A point is a real and an imaginary Single, in the file's byte order (little-endian).
    const std::string_view values = valueBytes(*element);
    if (points > values.size() / 8)
        return undecoded("Siemens spectroscopy data", fileName,
                         "DataPointColumns is " + plainText(static_cast<int64_t>(points)) + ", the data holds " +
                             plainText(static_cast<int64_t>(values.size() / 8)) + " points");
    TwoColumns out(form, number, odfName);
    for (uint64_t i = 0; i < points; ++i) {
        Float32 real;
        std::memcpy(&real, values.data() + 8 * i, 4);
        out.line(static_cast<int64_t>(i), real);
    }
    out.close();
    return "";
}

// ---- waveforms: the first channel of the first multiplex group ----

Written writeWaveform(Session& form, DcmItem& dataset, const std::string& fileName, int number,
                   const std::string& odfName) {
    DcmItem* group = nullptr;
    DcmElement* data = nullptr;
    if (dataset.findAndGetSequenceItem(DCM_WaveformSequence, group, 0).bad() || !group) return std::nullopt;
    if (group->findAndGetElement(DCM_WaveformData, data).bad() || !data) {
        if (form.boxes.ModernRead) return undecoded("waveform data", fileName, "its first group holds no samples");
        return std::nullopt;
    }
    Uint16 channels = 0, bits = 0;
    Uint32 samples = 0;
    OFString interpretation;
    group->findAndGetUint16(DCM_NumberOfWaveformChannels, channels);
    group->findAndGetUint32(DCM_NumberOfWaveformSamples, samples);
    group->findAndGetUint16(DCM_WaveformBitsAllocated, bits);
    group->findAndGetOFString(DCM_WaveformSampleInterpretation, interpretation);
    if (channels == 0 || (bits != 8 && bits != 16 && bits != 32 && bits != 64)) {
        return undecoded("waveform data", fileName,
                         plainText(int64_t{channels}) + " channels of " + plainText(int64_t{bits}) + " bits");
    }
    const bool isSigned = interpretation == "SB" || interpretation == "SS" || interpretation == "SL" ||
                          interpretation == "SV";
    const int bytes = bits / 8;
    const std::string_view values = valueBytes(*data);
    const uint64_t stride = uint64_t{channels} * static_cast<uint64_t>(bytes);
    const uint64_t present = std::min<uint64_t>(samples, values.size() / stride);
    TwoColumns out(form, number, odfName);
    for (uint64_t s = 0; s < present; ++s)
        out.line(static_cast<int64_t>(s), littleEndianSample(values.data() + s * stride, bytes, isSigned));
    out.close();
    return "";
}

// ---- images: the histogram of the modality values ----

struct PixelLayout {
    Uint16 rows = 0, columns = 0, samplesPerPixel = 1;
    Uint16 bitsAllocated = 0, bitsStored = 0, highBit = 0, pixelRepresentation = 0;
    Sint32 frames = 1;
    double slope = 1, intercept = 0;
    uint64_t valuesPerFrame() const { return uint64_t{rows} * columns * samplesPerPixel; }
};

// A DS value, or the default when absent or not a finite number.
double decimalOr(DcmItem& dataset, const DcmTagKey& tag, double absent) {
    Float64 value = absent;
    if (dataset.findAndGetFloat64(tag, value).bad() || !std::isfinite(value)) return absent;
    return value;
}

PixelLayout pixelLayout(DcmItem& dataset) {
    PixelLayout p;
    dataset.findAndGetUint16(DCM_Rows, p.rows);
    dataset.findAndGetUint16(DCM_Columns, p.columns);
    dataset.findAndGetUint16(DCM_SamplesPerPixel, p.samplesPerPixel);
    dataset.findAndGetUint16(DCM_BitsAllocated, p.bitsAllocated);
    dataset.findAndGetUint16(DCM_BitsStored, p.bitsStored);
    dataset.findAndGetUint16(DCM_HighBit, p.highBit);
    dataset.findAndGetUint16(DCM_PixelRepresentation, p.pixelRepresentation);
    if (dataset.findAndGetSint32(DCM_NumberOfFrames, p.frames).bad() || p.frames < 1) p.frames = 1;
    if (p.bitsStored == 0 || p.bitsStored > p.bitsAllocated) p.bitsStored = p.bitsAllocated;
    if (p.highBit + 1 < p.bitsStored || p.highBit >= p.bitsAllocated) p.highBit = p.bitsStored - 1;
    p.slope = decimalOr(dataset, DCM_RescaleSlope, 1);
    p.intercept = decimalOr(dataset, DCM_RescaleIntercept, 0);
    return p;
}

// The stored value of each sample of a frame: its BitsStored bits below
// HighBit, two's complement when PixelRepresentation is 1. Samples are
// handed on as an index from 0 to 2^BitsStored - 1 that keeps the values'
// order (a signed value's sign bit flipped).
class StoredValues {
public:
    explicit StoredValues(const PixelLayout& p)
        : bitsAllocated_(p.bitsAllocated),
          shift_(p.highBit + 1 - p.bitsStored),
          mask_((uint64_t{1} << p.bitsStored) - 1),
          signBit_(p.pixelRepresentation == 1 ? uint64_t{1} << (p.bitsStored - 1) : 0),
          count_(p.valuesPerFrame()) {}

    template <typename Visit>
    void forEachIndex(const uint8_t* frame, size_t frameBytes, Visit visit) const {
        const uint64_t n = std::min<uint64_t>(count_, bitsAllocated_ == 1 ? frameBytes * 8
                                                                          : frameBytes / (bitsAllocated_ / 8));
        switch (bitsAllocated_) {
        case 1:
            for (uint64_t i = 0; i < n; ++i) visit(((frame[i / 8] >> (i % 8)) & 1u) ^ signBit_);
            break;
        case 8:
            for (uint64_t i = 0; i < n; ++i) visit(((frame[i] >> shift_) & mask_) ^ signBit_);
            break;
        case 16:
            for (uint64_t i = 0; i < n; ++i) {
                uint16_t v;
                std::memcpy(&v, frame + 2 * i, 2);
                visit(((v >> shift_) & mask_) ^ signBit_);
            }
            break;
        default:
            for (uint64_t i = 0; i < n; ++i) {
                uint32_t v;
                std::memcpy(&v, frame + 4 * i, 4);
                visit(((v >> shift_) & mask_) ^ signBit_);
            }
        }
    }

    int64_t value(uint64_t index) const { return static_cast<int64_t>(index) - static_cast<int64_t>(signBit_); }

private:
    int bitsAllocated_;
    int shift_;
    uint64_t mask_;
    uint64_t signBit_;
    uint64_t count_;
};

// Modality values are first observed (range, whole or not), then counted:
// every whole value of a narrow range, else 4096 equal bins.
class ModalityHistogram {
public:
    void observe(double v) {
        if (!std::isfinite(v)) {
            finite_ = false;
            return;
        }
        min_ = std::min(min_, v);
        max_ = std::max(max_, v);
        whole_ = whole_ && v == std::floor(v);
    }
    // Every value, their span and each bin's edge are finite numbers.
    bool finite() const { return finite_ && (empty() || std::isfinite(max_ - min_)); }
    bool empty() const { return max_ < min_; }

    void startCounting() {
        constexpr double ExactWhole = 9007199254740992.0;  // 2^53
        perValue_ = whole_ && max_ - min_ < WidestWholeSpan && min_ > -ExactWhole && max_ < ExactWhole;
        counts_.assign(perValue_ ? static_cast<size_t>(max_ - min_) + 1 : max_ > min_ ? HistogramBins : 1, 0);
        width_ = (max_ - min_) / static_cast<double>(HistogramBins);
    }
    void add(double v, uint64_t count) {
        size_t at = 0;
        if (perValue_) {
            at = static_cast<size_t>(v - min_);
        } else if (counts_.size() > 1) {
            const double bin = std::floor((v - min_) / width_);
            at = bin >= 0 ? static_cast<size_t>(std::min(bin, double(HistogramBins - 1))) : 0;
        }
        counts_[at] += count;
    }
    void writeTo(TwoColumns& out) const {
        for (size_t k = 0; k < counts_.size(); ++k) {
            const auto count = static_cast<int64_t>(counts_[k]);
            if (perValue_) out.line(static_cast<int64_t>(min_) + static_cast<int64_t>(k), count);
            else out.line(min_ + static_cast<double>(k) * width_, count);
        }
    }

private:
    double min_ = std::numeric_limits<double>::infinity();
    double max_ = -std::numeric_limits<double>::infinity();
    bool finite_ = true;
    bool whole_ = true;
    bool perValue_ = false;
    double width_ = 0;
    std::vector<uint64_t> counts_;
};

// Decodes the frames one at a time (DCMTK's decoders for compressed pixel
// data) and hands each to `visit`; returns why decoding failed, or "".
class FrameSource {
public:
    FrameSource(DcmDataset& dataset, DcmPixelData& pixels, const PixelLayout& layout)
        : dataset_(dataset), pixels_(pixels), layout_(layout) {}

    std::string check() {
        if (layout_.bitsAllocated != 1 && layout_.bitsAllocated != 8 && layout_.bitsAllocated != 16 &&
            layout_.bitsAllocated != 32)
            return "Bits Allocated " + plainText(int64_t{layout_.bitsAllocated}) + " is not supported";
        if (pixels_.getUncompressedFrameSize(&dataset_, frameBytes_).bad() || frameBytes_ == 0)
            return "the image has no pixels";
        if (frameBytes_ > LargestFrameBytes) return "a frame of " + plainText(int64_t{frameBytes_}) + " bytes is too large";
        const uint64_t frames = static_cast<uint64_t>(layout_.frames);
        if (DcmXfer(dataset_.getOriginalXfer()).isEncapsulated()) {
            DcmPixelSequence* sequence = nullptr;
            if (pixels_.getEncapsulatedRepresentation(dataset_.getOriginalXfer(), nullptr, sequence).bad() || !sequence)
                return "no compressed frames found";
            // Every frame takes one fragment at least, after the offset table.
            if (frames + 1 > sequence->card())
                return plainText(static_cast<int64_t>(frames)) + " frames in " +
                       plainText(static_cast<int64_t>(sequence->card())) + " fragments";
        } else if (frames * frameBytes_ > pixels_.getLength()) {
            return "the pixel data holds " + plainText(int64_t{pixels_.getLength()}) + " bytes, " +
                   plainText(static_cast<int64_t>(frames * frameBytes_)) + " are needed";
        }
        return "";
    }

    template <typename Visit>
    std::string forEachFrame(Visit visit) {
        std::vector<uint8_t> frame(frameBytes_ + frameBytes_ % 2);
        Uint32 fragment = 0;
        DcmFileCache cache;
        for (Sint32 f = 0; f < layout_.frames; ++f) {
            OFString colourModel;
            const OFCondition decoded = pixels_.getUncompressedFrame(&dataset_, static_cast<Uint32>(f), fragment,
                                                                     frame.data(), static_cast<Uint32>(frame.size()),
                                                                     colourModel, &cache);
            if (decoded.bad()) return decoded.text();
            visit(frame.data(), size_t{frameBytes_});
        }
        return "";
    }

private:
    DcmDataset& dataset_;
    DcmPixelData& pixels_;
    const PixelLayout& layout_;
    Uint32 frameBytes_ = 0;
};

// Up to 16 bits a value: counted by stored value in one pass, then mapped.
// The counts live in a buffer kept from file to file (each file is read on
// a thread of its own), all zero in between: only the range a file used is
// cleared again.
std::string histogramOfNarrow(FrameSource& frames, const PixelLayout& layout, ModalityHistogram& histogram) {
    static std::mutex inUse;
    static std::vector<uint64_t> counts;
    const std::lock_guard<std::mutex> lock(inUse);
    counts.resize(std::max(counts.size(), size_t{1} << layout.bitsStored), 0);
    uint64_t low = counts.size(), high = 0;
    struct ClearAfter {
        std::vector<uint64_t>& counts;
        const uint64_t &low, &high;
        ~ClearAfter() {
            if (low <= high) std::fill(counts.begin() + static_cast<ptrdiff_t>(low),
                                       counts.begin() + static_cast<ptrdiff_t>(high) + 1, 0);
        }
    } clearAfter{counts, low, high};

    const StoredValues stored(layout);
    std::string failure = frames.forEachFrame([&](const uint8_t* frame, size_t bytes) {
        stored.forEachIndex(frame, bytes, [&](uint64_t index) {
            ++counts[index];
            low = std::min(low, index);
            high = std::max(high, index);
        });
    });
    if (!failure.empty()) return failure;
    const auto modality = [&](uint64_t index) {
        return static_cast<double>(stored.value(index)) * layout.slope + layout.intercept;
    };
    for (uint64_t i = low; i <= high; ++i)
        if (counts[i]) histogram.observe(modality(i));
    if (!histogram.finite()) return "the rescaled values are out of range";
    histogram.startCounting();
    for (uint64_t i = low; i <= high; ++i)
        if (counts[i]) histogram.add(modality(i), counts[i]);
    return "";
}

// Wider values: one pass to find the range, a second to count.
std::string histogramOfWide(FrameSource& frames, const PixelLayout& layout, ModalityHistogram& histogram) {
    const StoredValues stored(layout);
    const auto modality = [&](uint64_t index) {
        return static_cast<double>(stored.value(index)) * layout.slope + layout.intercept;
    };
    std::string failure = frames.forEachFrame([&](const uint8_t* frame, size_t bytes) {
        stored.forEachIndex(frame, bytes, [&](uint64_t index) { histogram.observe(modality(index)); });
    });
    if (!failure.empty()) return failure;
    if (!histogram.finite()) return "the rescaled values are out of range";
    histogram.startCounting();
    return frames.forEachFrame([&](const uint8_t* frame, size_t bytes) {
        stored.forEachIndex(frame, bytes, [&](uint64_t index) { histogram.add(modality(index), 1); });
    });
}

Written writeHistogram(Session& form, DcmDataset& dataset, const std::string& fileName, int number,
                    const std::string& odfName) {
    DcmElement* element = nullptr;
    if (dataset.findAndGetElement(DCM_PixelData, element).bad() || !element || element->ident() != EVR_PixelData)
        return std::nullopt;
    const PixelLayout layout = pixelLayout(dataset);
    FrameSource frames(dataset, static_cast<DcmPixelData&>(*element), layout);
    ModalityHistogram histogram;
    std::string failure = frames.check();
    if (failure.empty())
        failure = layout.bitsStored <= 16 ? histogramOfNarrow(frames, layout, histogram)
                                          : histogramOfWide(frames, layout, histogram);
    if (!failure.empty()) return undecoded("pixel data", fileName, failure);
    if (histogram.empty()) return "";
    TwoColumns out(form, number, odfName);
    histogram.writeTo(out);
    out.close();
    return "";
}

}  // namespace

std::string writeDicomColumns(Session& form, DcmDataset& dataset, const std::string& fileName, int outputNumber,
                              const std::string& odfName) {
    if (Written w = writeSpectrum(form, dataset, fileName, outputNumber, odfName)) return *w;
    if (Written w = writeSiemensSpectrum(form, dataset, fileName, outputNumber, odfName)) return *w;
    if (Written w = writeWaveform(form, dataset, fileName, outputNumber, odfName)) return *w;
    if (Written w = writeHistogram(form, dataset, fileName, outputNumber, odfName)) return *w;
    // Floating-point images have no stored values to count.
    if (form.boxes.ModernRead &&
        (dataset.tagExists(DCM_FloatPixelData) || dataset.tagExists(DCM_DoubleFloatPixelData)))
        return undecoded("pixel data", fileName,
                         "its values are floating-point, Kestro counts whole stored values only");
    return "";
}

}  // namespace kestro
