// DICOM files through the driver: files written here with DCMTK (images,
// frames, RLE, spectroscopy, Siemens spectroscopy, a waveform, sequences,
// every encoding), the
// listing and the ".odf" compared byte for byte, the DICOM.tags names, the
// refusals, and the real files.
#include <dcmtk/config/osconfig.h>
#include <dcmtk/dcmdata/dctk.h>
#include <dcmtk/dcmdata/dcpxitem.h>
#include <dcmtk/dcmdata/dcrleerg.h>

#include <numeric>
#include <sstream>

#include "TestSupport.h"
#include "readers/dicom/SiemensCsa.h"

namespace kestro {
namespace {

using testing::readFile;
using testing::writeFile;
using DicomReaderTest = testing::ConversionTest;

// A data set with what every image needs; the test adds the rest.
std::unique_ptr<DcmFileFormat> newImage(Uint16 rows, Uint16 columns, Uint16 bits) {
    auto file = std::make_unique<DcmFileFormat>();
    DcmDataset& d = *file->getDataset();
    d.putAndInsertString(DCM_SOPClassUID, UID_SecondaryCaptureImageStorage);
    d.putAndInsertString(DCM_SOPInstanceUID, "1.2.3.4");
    d.putAndInsertString(DCM_PhotometricInterpretation, "MONOCHROME2");
    d.putAndInsertUint16(DCM_SamplesPerPixel, 1);
    d.putAndInsertUint16(DCM_Rows, rows);
    d.putAndInsertUint16(DCM_Columns, columns);
    d.putAndInsertUint16(DCM_BitsAllocated, bits);
    d.putAndInsertUint16(DCM_BitsStored, bits);
    d.putAndInsertUint16(DCM_HighBit, static_cast<Uint16>(bits - 1));
    d.putAndInsertUint16(DCM_PixelRepresentation, 0);
    return file;
}

std::string saved(DcmFileFormat& file, const std::string& path, E_TransferSyntax xfer = EXS_LittleEndianExplicit,
                  E_FileWriteMode mode = EWM_fileformat) {
    const OFCondition written = file.saveFile(path.c_str(), xfer, EET_ExplicitLength, EGL_recalcGL, EPD_noChange, 0,
                                              0, mode);
    EXPECT_TRUE(written.good()) << written.text();
    return readFile(path);
}

// The data set's part of a listing: every line after the meta header's.
std::string dataSetLines(const std::string& listing) {
    std::istringstream in(listing);
    std::string out, line;
    while (std::getline(in, line, '\n'))
        if (line.rfind("(0002,", 0) != 0) out += line + "\n";
    return out;
}

int64_t countsAddUp(const std::string& odf) {
    std::istringstream in(odf);
    double value;
    int64_t count, total = 0;
    while (in >> value >> count) total += count;
    return total;
}

class DicomFiles : public DicomReaderTest {
protected:
    // Converts one file made by DCMTK and returns its ".odf" ("" when none).
    std::string odfOf(DcmFileFormat& file, const std::string& name, E_TransferSyntax xfer = EXS_LittleEndianExplicit) {
        queue(name + ".dcm", saved(file, dir.file(name + ".dcm"), xfer));
        EXPECT_EQ(run(), RunOutcome::Finished) << name;
        return written(name + ".odf") ? output(name + ".odf") : "";
    }
};

TEST_F(DicomFiles, WholeModalityValuesGetALineEach) {
    auto file = newImage(2, 3, 16);
    const Uint16 pixels[] = {0, 1, 1, 3, 3, 3};
    file->getDataset()->putAndInsertUint16Array(DCM_PixelData, pixels, 6);
    file->getDataset()->putAndInsertString(DCM_RescaleSlope, "2");
    file->getDataset()->putAndInsertString(DCM_RescaleIntercept, "-1");
    EXPECT_EQ(odfOf(*file, "rescaled"), "-1  1 \r\n 0  0 \r\n 1  2 \r\n 2  0 \r\n 3  0 \r\n 4  0 \r\n 5  3 \r\n");
    EXPECT_TRUE(host.boxes.empty());
    EXPECT_FALSE(form.boxes.DsGr);

    // Twelve bits stored, signed, with other bits above them: only the stored bits count.
    file = newImage(1, 3, 16);
    file->getDataset()->putAndInsertUint16(DCM_BitsStored, 12);
    file->getDataset()->putAndInsertUint16(DCM_HighBit, 11);
    file->getDataset()->putAndInsertUint16(DCM_PixelRepresentation, 1);
    const Uint16 signedPixels[] = {0xFFFF, 0xF001, 0x0FFE};
    file->getDataset()->putAndInsertUint16Array(DCM_PixelData, signedPixels, 3);
    EXPECT_EQ(odfOf(*file, "signed"), "-2  1 \r\n-1  1 \r\n 0  0 \r\n 1  1 \r\n");
}

TEST_F(DicomFiles, FractionalOrWideValuesGo4096Bins) {
    auto file = newImage(1, 4, 16);
    const Uint16 pixels[] = {0, 1, 1, 3};
    file->getDataset()->putAndInsertUint16Array(DCM_PixelData, pixels, 4);
    file->getDataset()->putAndInsertString(DCM_RescaleSlope, "0.5");
    const std::string odf = odfOf(*file, "half");
    std::vector<std::string> lines;
    std::istringstream in(odf);
    for (std::string line; std::getline(in, line, '\n');) lines.push_back(line);
    ASSERT_EQ(lines.size(), 4096u);
    EXPECT_EQ(lines[0], " 0  1 \r");
    // 0.5 lies in bin 1365 of width 1.5 / 4096; the largest value in the last bin.
    EXPECT_EQ(lines[1365], " 0.4998779296875  2 \r");
    EXPECT_EQ(lines[4095], " 1.4996337890625  1 \r");
    EXPECT_EQ(countsAddUp(odf), 4);

    // Whole values over more than 65,536 values: bins too.
    auto wide = newImage(1, 2, 32);
    const Uint32 wideValues[] = {0, 4096 * 100};
    wide->getDataset()->putAndInsertUint16(DCM_BitsStored, 32);
    Uint8 bytes[8];
    std::memcpy(bytes, wideValues, 8);
    wide->getDataset()->putAndInsertUint8Array(DCM_PixelData, bytes, 8);
    const std::string wideOdf = odfOf(*wide, "wide");
    EXPECT_EQ(wideOdf.substr(0, 21), " 0  1 \r\n 100  0 \r\n 20");
    EXPECT_EQ(wideOdf.substr(wideOdf.size() - 13), " 409500  1 \r\n");
}

TEST_F(DicomFiles, FramesEncodingsAndCompressionAllCount) {
    // Two frames of 8 bits: both counted.
    auto frames = newImage(2, 2, 8);
    frames->getDataset()->putAndInsertString(DCM_NumberOfFrames, "2");
    const Uint8 pixels[] = {5, 5, 6, 7, 7, 7, 7, 5};
    frames->getDataset()->putAndInsertUint8Array(DCM_PixelData, pixels, 8);
    const std::string expected = " 5  3 \r\n 6  1 \r\n 7  4 \r\n";
    EXPECT_EQ(odfOf(*frames, "frames"), expected);

    // The same pixels in 16 bits, written in every encoding, and RLE-compressed.
    auto image = newImage(2, 4, 16);
    const Uint16 words[] = {5, 5, 6, 7, 7, 7, 7, 5};
    image->getDataset()->putAndInsertUint16Array(DCM_PixelData, words, 8);
    EXPECT_EQ(odfOf(*image, "implicit", EXS_LittleEndianImplicit), expected);
    EXPECT_EQ(odfOf(*image, "big", EXS_BigEndianExplicit), expected);
    DcmRLEEncoderRegistration::registerCodecs();
    ASSERT_TRUE(image->getDataset()->chooseRepresentation(EXS_RLELossless, nullptr).good());
    EXPECT_EQ(odfOf(*image, "rle", EXS_RLELossless), expected);
    DcmRLEEncoderRegistration::cleanup();
    EXPECT_NE(output("rle.hdr").find("(0002,0010) UI TransferSyntaxUID = 1.2.840.10008.1.2.5\r\n"), std::string::npos);
    EXPECT_TRUE(host.boxes.empty());

    // A bare data set, without preamble or meta header.
    auto bare = newImage(1, 1, 8);
    const Uint8 one = 9;
    bare->getDataset()->putAndInsertUint8Array(DCM_PixelData, &one, 1);
    queue("bare.dcm", saved(*bare, dir.file("bare.dcm"), EXS_LittleEndianExplicit, EWM_dataset));
    EXPECT_EQ(run(), RunOutcome::Finished);
    EXPECT_EQ(output("bare.odf"), " 9  1 \r\n");
}

TEST_F(DicomFiles, SpectroscopyAndWaveformsGiveTheirFirstSeries) {
    DcmFileFormat spectrum;
    DcmDataset& s = *spectrum.getDataset();
    s.putAndInsertString(DCM_SOPClassUID, UID_MRSpectroscopyStorage);
    s.putAndInsertUint32(DCM_DataPointColumns, 3);
    s.putAndInsertString(DCM_DataRepresentation, "COMPLEX");
    const Float32 points[] = {1.5f, 9, -2.25f, 9, 3e-7f, 9, 4, 9};  // a second spectrum follows the first
    s.putAndInsertFloat32Array(DCM_SpectroscopyData, points, 8);
    EXPECT_EQ(odfOf(spectrum, "spectrum"), " 0  1.5 \r\n 1 -2.25 \r\n 2  3E-07 \r\n");

    DcmFileFormat ecg;
    DcmItem* group = nullptr;
    ASSERT_TRUE(ecg.getDataset()->findOrCreateSequenceItem(DCM_WaveformSequence, group, -2).good());
    group->putAndInsertUint16(DCM_NumberOfWaveformChannels, 2);
    group->putAndInsertUint32(DCM_NumberOfWaveformSamples, 3);
    group->putAndInsertUint16(DCM_WaveformBitsAllocated, 16);
    group->putAndInsertString(DCM_WaveformSampleInterpretation, "SS");
    const Uint16 samples[] = {static_cast<Uint16>(-40), 1, 0, 2, 300, 3};
    group->putAndInsertUint16Array(DCM_WaveformData, samples, 6);
    EXPECT_EQ(odfOf(ecg, "ecg"), " 0 -40 \r\n 1  0 \r\n 2  300 \r\n");

    // No such data at all: the listing alone, and no message.
    DcmFileFormat plain;
    plain.getDataset()->putAndInsertString(DCM_PatientName, "Doe^Jane");
    EXPECT_EQ(odfOf(plain, "plain"), "");
    EXPECT_EQ(dataSetLines(output("plain.hdr")), "(0010,0010) PN PatientName = Doe^Jane\r\n");
    EXPECT_TRUE(host.boxes.empty());
}

TEST_F(DicomFiles, ListingNamesEveryElementAtItsDepth) {
    DcmFileFormat file;
    DcmDataset& d = *file.getDataset();
    d.putAndInsertString(DCM_ImageType, "ORIGINAL\\PRIMARY");
    d.putAndInsertUint16(DCM_Rows, 512);
    d.putAndInsertFloat64(DCM_RealWorldValueSlope, 0.25);  // a number DCMTK renders
    DcmItem* outer = nullptr;
    DcmItem* inner = nullptr;
    d.findOrCreateSequenceItem(DCM_ReferencedSeriesSequence, outer, -2);
    outer->putAndInsertString(DCM_SeriesInstanceUID, "1.2");
    outer->findOrCreateSequenceItem(DCM_ReferencedInstanceSequence, inner, -2);
    inner->putAndInsertString(DCM_ReferencedSOPInstanceUID, "1.2.3");
    d.findOrCreateSequenceItem(DCM_ReferencedSeriesSequence, outer, -2);
    outer->putAndInsertString(DCM_SeriesInstanceUID, "1.3");
    std::vector<Uint8> overlay(66, 0xAB);
    d.putAndInsertUint8Array(DcmTag(0x6000, 0x3000, EVR_OB), overlay.data(), 64);  // short binary: shown
    d.putAndInsertUint8Array(DcmTag(0x6002, 0x3000, EVR_OB), overlay.data(), 66);  // longer: its length
    d.putAndInsertString(DcmTag(0x0029, 0x0010, EVR_LO), "KESTRO LAB");
    d.putAndInsertString(DcmTag(0x0029, 0x1001, EVR_DS), "5");

    const std::string ab64 = [] {
        std::string s = "ab";
        for (int i = 1; i < 64; ++i) s += "\\ab";  // DCMTK renders bytes in lower case
        return s;
    }();
    const std::string expected =
        "(0008,0008) CS ImageType = ORIGINAL\\PRIMARY\r\n"
        "(0008,1115) SQ ReferencedSeriesSequence = <2 items>\r\n"
        "  (0008,114A) SQ ReferencedInstanceSequence = <1 item>\r\n"
        "    (0008,1155) UI ReferencedSOPInstanceUID = 1.2.3\r\n"
        "  (0020,000E) UI SeriesInstanceUID = 1.2\r\n"
        "  (0020,000E) UI SeriesInstanceUID = 1.3\r\n"
        "(0028,0010) US Rows = 512\r\n"
        "(0029,0010) LO PrivateCreator = KESTRO LAB\r\n"
        "(0029,1001) DS Unknown = 5\r\n"
        "(0040,9225) FD RealWorldValueSlope = 0.25\r\n"
        "(6000,3000) OB OverlayData = " + ab64 + "\r\n"
        "(6002,3000) OB OverlayData = <66 bytes>\r\n";
    queue("list.dcm", saved(file, dir.file("list.dcm")));
    EXPECT_EQ(run(), RunOutcome::Finished);
    const std::string listing = output("list.hdr");
    EXPECT_EQ(dataSetLines(listing), expected);
    EXPECT_EQ(listing.rfind("(0002,0000) UL FileMetaInformationGroupLength = ", 0), 0u);
    EXPECT_FALSE(written("list.odf"));
}

TEST_F(DicomFiles, DicomTagsNamesTagsAndReportsBadLinesOncePerRun) {
    DcmFileFormat file;
    DcmDataset& d = *file.getDataset();
    d.putAndInsertString(DCM_PatientName, "Doe^Jane");
    d.putAndInsertString(DcmTag(0x0029, 0x0010, EVR_LO), "KESTRO LAB");
    d.putAndInsertString(DcmTag(0x0029, 0x1001, EVR_DS), "5");
    d.putAndInsertString(DcmTag(0x0029, 0x1002, EVR_DS), "6");
    d.putAndInsertString(DcmTag(0x6002, 0x0022, EVR_LO), "ring");
    writeFile(dir.file("DICOM.tags"),
              "# the lab's names\n"
              "(0010,0010)\tPN\tNameOfSubject\t1\tLAB\r\n"
              "(0029,\"KESTRO LAB\",01)\tDS\tBeamCurrent\t1\tPrivateTag\n"
              "(6000-60FF,0022)\tLO\tOverlayNote\t1\n"
              "(0029,1002)\tXX\tNoSuchVr\t1\n"
              "not a tag line\n");
    const std::string bytes = saved(file, dir.file("a.dcm"));
    queue("a.dcm", bytes);
    queue("b.dcm", bytes);
    EXPECT_EQ(run(), RunOutcome::Finished);
    EXPECT_EQ(dataSetLines(output("a.hdr")),
              "(0010,0010) PN NameOfSubject = Doe^Jane\r\n"
              "(0029,0010) LO PrivateCreator = KESTRO LAB\r\n"
              "(0029,1001) DS BeamCurrent = 5\r\n"
              "(0029,1002) DS Unknown = 6\r\n"
              "(6002,0022) LO OverlayNote = ring\r\n");
    const std::string report = std::string("DICOM.tags: these lines are not tag definitions and are ignored:\n") +
                               "line 5: (0029,1002)\tXX\tNoSuchVr\t1\nline 6: not a tag line";
    ASSERT_EQ(host.boxes.size(), 1u);
    EXPECT_EQ(message(), report);
    EXPECT_EQ(host.boxes[0].icon, BoxIcon::Exclamation);
    // Once a run: the next run reports it again.
    queue("a.dcm", bytes);
    EXPECT_EQ(run(), RunOutcome::Finished);
    EXPECT_EQ(host.boxes.size(), 2u);

    // Without the file, DCMTK's own names.
    std::filesystem::remove(dir.file("DICOM.tags"));
    queue("a.dcm", bytes);
    EXPECT_EQ(run(), RunOutcome::Finished);
    EXPECT_NE(output("a.hdr").find("(0010,0010) PN PatientName = Doe^Jane\r\n"), std::string::npos);
    EXPECT_EQ(host.boxes.size(), 2u);
}

TEST_F(DicomFiles, BadFilesAreRefusedAndTheBatchGoesOn) {
    auto image = newImage(1, 1, 8);
    const Uint8 one = 9;
    image->getDataset()->putAndInsertUint8Array(DCM_PixelData, &one, 1);
    const std::string good = saved(*image, dir.file("good.dcm"));
    queue("text.dcm", "This is a text file, not an image.\r\n");
    queue("cut.dcm", good.substr(0, good.size() - 20));
    queue("empty.dcm", "");
    queue("good.dcm", good);
    EXPECT_EQ(run(), RunOutcome::Finished);
    ASSERT_EQ(host.boxes.size(), 3u);
    for (const auto& box : host.boxes) {
        EXPECT_EQ(box.text.rfind("Not a DICOM file: ", 0), 0u) << box.text;
        EXPECT_GT(box.text.size(), 20u);
        EXPECT_EQ(box.icon, BoxIcon::Critical);
    }
    for (const char* stem : {"text", "cut", "empty"})
        EXPECT_FALSE(written(std::string(stem) + ".hdr") || written(std::string(stem) + ".odf")) << stem;
    EXPECT_EQ(output("good.odf"), " 9  1 \r\n");
    EXPECT_EQ(host.statuses.back().first, "Finished 4 files");
}

TEST_F(DicomFiles, DeepNestingIsReadWithoutOverflow) {
    // 30,000 nested sequences of undefined length, each closed again: far
    // deeper than a default stack holds while DCMTK recurses.
    const int depth = 30000;
    std::string bytes(128, '\0');
    bytes += "DICM";
    const std::string syntax("1.2.840.10008.1.2.1\0", 20);
    const auto tag = [](uint16_t g, uint16_t e) { return std::string{char(g), char(g >> 8), char(e), char(e >> 8)}; };
    const std::string undefined = "\xFF\xFF\xFF\xFF", zero(4, '\0');
    bytes += tag(2, 0) + "UL" + std::string{4, 0} + std::string{char(8 + syntax.size()), 0, 0, 0};
    bytes += tag(2, 0x10) + "UI" + std::string{char(syntax.size()), 0} + syntax;
    for (int i = 0; i < depth; ++i)
        bytes += tag(0x0008, 0x1115) + "SQ" + std::string(2, '\0') + undefined + tag(0xFFFE, 0xE000) + undefined;
    for (int i = 0; i < depth; ++i) bytes += tag(0xFFFE, 0xE00D) + zero + tag(0xFFFE, 0xE0DD) + zero;
    EXPECT_EQ(convert("deep.dcm", bytes), RunOutcome::Finished);
    EXPECT_TRUE(host.boxes.empty()) << message();
    const std::string listing = output("deep.hdr");
    EXPECT_EQ(std::count(listing.begin(), listing.end(), '\n'), depth + 2);
    // Indented two blanks a level, up to 64 levels.
    EXPECT_NE(listing.find("\r\n" + std::string(6, ' ') + "(0008,1115) SQ ReferencedSeriesSequence = <1 item>\r\n"),
              std::string::npos);
    const std::string innermost = "(0008,1115) SQ ReferencedSeriesSequence = <1 item>\r\n";
    EXPECT_EQ(listing.substr(listing.size() - innermost.size() - 129), "\n" + std::string(128, ' ') + innermost);
    EXPECT_LT(listing.size(), size_t{200} * depth);
}

TEST_F(DicomFiles, UndecodablePixelDataKeepsItsListing) {
    // JPEG 2000, which DCMTK cannot decode, and a native image shorter than it says.
    auto jpeg2000 = newImage(2, 2, 8);
    auto* pixels = new DcmPixelData(DCM_PixelData);
    auto* fragments = new DcmPixelSequence(DCM_PixelSequenceTag);
    fragments->insert(new DcmPixelItem(DCM_PixelItemTag));
    auto* fragment = new DcmPixelItem(DCM_PixelItemTag);
    const Uint8 junk[] = {0xFF, 0x4F, 0xFF, 0x51};
    fragment->putUint8Array(junk, 4);
    fragments->insert(fragment);
    pixels->putOriginalRepresentation(EXS_JPEG2000LosslessOnly, nullptr, fragments);
    jpeg2000->getDataset()->insert(pixels, true);
    EXPECT_EQ(odfOf(*jpeg2000, "j2k", EXS_JPEG2000LosslessOnly), "");
    EXPECT_TRUE(written("j2k.hdr"));
    ASSERT_EQ(host.boxes.size(), 1u);
    EXPECT_EQ(message().rfind("The pixel data of " + dir.file("j2k.dcm") + " could not be decoded: ", 0), 0u);
    EXPECT_EQ(host.boxes[0].icon, BoxIcon::Exclamation);

    auto shortImage = newImage(100, 100, 16);
    const Uint16 few[] = {1, 2};
    shortImage->getDataset()->putAndInsertUint16Array(DCM_PixelData, few, 2);
    EXPECT_EQ(odfOf(*shortImage, "short"), "");
    EXPECT_EQ(message(), "The pixel data of " + dir.file("short.dcm") +
                             " could not be decoded: the pixel data holds 4 bytes, 20000 are needed");
}

TEST_F(DicomFiles, RealFilesListAndCountEveryPixel) {
    struct Sample { const char* name; const char* patient; int pixels; };
    for (const Sample& s : {Sample{"CT_small.dcm", "CompressedSamples^CT1", 128 * 128},
                            Sample{"MR_small.dcm", "CompressedSamples^MR1", 64 * 64}}) {
        const std::string name = s.name;
        queue(name, readFile(std::string(KESTRO_SAMPLES_DIR) + "/dcm/" + name));
        EXPECT_EQ(run(), RunOutcome::Finished);
        const std::string stem = name.substr(0, name.size() - 4);
        const std::string listing = output(stem + ".hdr");
        const std::string rows = std::to_string(s.pixels == 128 * 128 ? 128 : 64);
        EXPECT_NE(listing.find("(0010,0010) PN PatientName = " + std::string(s.patient) + "\r\n"), std::string::npos);
        EXPECT_NE(listing.find("(0028,0010) US Rows = " + rows + "\r\n"), std::string::npos);
        EXPECT_NE(listing.find("(0028,0011) US Columns = " + rows + "\r\n"), std::string::npos);
        EXPECT_NE(listing.find("(7FE0,0010) OW PixelData = <" + std::to_string(2 * s.pixels) + " bytes>\r\n"),
                  std::string::npos);
        EXPECT_EQ(countsAddUp(output(stem + ".odf")), s.pixels) << name;
    }
    EXPECT_TRUE(host.boxes.empty());
}

TEST_F(DicomFiles, DictionaryIsFoundWhereverDcmtkIsToldToLook) {
    // A DCMTK dictionary path that leads nowhere: the installed dictionary
    // is read instead, and DCMTK's complaints stay off the console. A file
    // without an extension converts with the "DICOM" format choice.
    writeFile(dir.file("IM0001"), readFile(std::string(KESTRO_SAMPLES_DIR) + "/dcm/MR_small.dcm"));
    const std::string command = "cd '" + dir.path() + "' && DCMDICTPATH=/nowhere/dicom.dic '" KESTRO_CONVERT
                                "' --format 20 IM0001 >out.txt 2>err.txt";
    EXPECT_EQ(std::system(command.c_str()), 0);
    EXPECT_EQ(output("err.txt"), "");
    EXPECT_NE(output("IM0001.hdr").find("(0010,0010) PN PatientName = CompressedSamples^MR1\r\n"), std::string::npos);
    EXPECT_EQ(countsAddUp(output("IM0001.odf")), 64 * 64);
}

// ---- Siemens spectroscopy ----

std::string word(uint32_t w) { return std::string(reinterpret_cast<const char*>(&w), 4); }

// A CSA header, each element with its items (an empty text is an item of
// length 0, as scanners write most of them). The older layout has no "SV10"
// and stores each item's length plus the first element's item count.
std::string csaHeader(const std::vector<std::pair<std::string, std::vector<std::string>>>& elements,
                      bool older = false) {
    std::string h = older ? "" : "SV10" + std::string("\4\3\2\1", 4);
    h += word(static_cast<uint32_t>(elements.size())) + word(77);
    const uint32_t bias = older && !elements.empty() ? static_cast<uint32_t>(elements[0].second.size()) : 0;
    for (const auto& [name, items] : elements) {
        std::string field = name;
        field.resize(64, '\0');
        h += field + word(1) + std::string("IS\0\0", 4) + word(6);
        h += word(static_cast<uint32_t>(items.size())) + word(77);
        for (const std::string& item : items) {
            const std::string text = item.empty() ? item : item + '\0';
            const auto n = static_cast<uint32_t>(text.size());
            const std::string length = word(n + bias);
            h += length + length + word(77) + length + text + std::string((4 - n % 4) % 4, '\0');
        }
    }
    return h;
}

void putPrivate(DcmItem& d, Uint16 group, Uint16 element, const std::string& bytes) {
    auto* e = new DcmOtherByteOtherWord(DcmTag(group, element, EVR_OB));
    e->putUint8Array(reinterpret_cast<const Uint8*>(bytes.data()), static_cast<unsigned long>(bytes.size()));
    d.insert(e, true);
}

void putCreator(DcmItem& d, Uint16 group, Uint16 element, const char* creator) {
    auto* e = new DcmLongString(DcmTag(group, element, EVR_LO));
    e->putString(creator);
    d.insert(e, true);
}

std::string complexSingles(const std::vector<float>& pairs) {
    return std::string(reinterpret_cast<const char*>(pairs.data()), 4 * pairs.size());
}

// A single-voxel spectroscopy file as Siemens scanners write it: no pixel
// data, the points in (7FE1,xx10) of "SIEMENS CSA NON-IMAGE". The blocks sit
// at numbers other than the usual ones, behind blocks of other creators, so
// only a search by creator finds them.
std::unique_ptr<DcmFileFormat> siemensSpectrum(const std::string& imageHeader, const std::string& seriesHeader,
                                               const std::string& points) {
    auto file = std::make_unique<DcmFileFormat>();
    DcmDataset& d = *file->getDataset();
    d.putAndInsertString(DCM_SOPClassUID, "1.3.12.2.1107.5.9.1");
    d.putAndInsertString(DCM_Manufacturer, "SIEMENS");
    putCreator(d, 0x0029, 0x0010, "SIEMENS MEDCOM HEADER");
    putPrivate(d, 0x0029, 0x1010, csaHeader({{"DataPointColumns", {"999"}}}));
    putCreator(d, 0x0029, 0x0012, "SIEMENS CSA HEADER");
    putPrivate(d, 0x0029, 0x1210, imageHeader);
    putPrivate(d, 0x0029, 0x1220, seriesHeader);
    putCreator(d, 0x7FE1, 0x0010, "SIEMENS MED NM");
    putPrivate(d, 0x7FE1, 0x1010, complexSingles({7, 7, 7, 7}));
    putCreator(d, 0x7FE1, 0x0011, "SIEMENS CSA NON-IMAGE ");
    putPrivate(d, 0x7FE1, 0x1110, points);
    return file;
}

class SiemensFiles : public DicomFiles {
protected:
    SiemensFiles() { form.boxes.ModernRead = true; }
};

TEST_F(SiemensFiles, FirstSpectrumRealPartsByPointIndex) {
    // The count in the series header (the image header lacks it), written as a
    // decimal; the data hold a second spectrum after the first.
    const std::string image = csaHeader({{"EchoTime", {"30.0"}}, {"ImaCoilString", {"", "HE1-4", ""}}});
    const std::string series =
        csaHeader({{"NumberOfFrames", {"1"}}, {"DataPointColumns", {"", "  3.00000000 ", "", ""}}});
    const auto file = siemensSpectrum(image, series, complexSingles({1.5f, 9, -2.25f, 9, 3e-7f, 9, 4, 9}));
    const std::string expected = " 0  1.5 \r\n 1 -2.25 \r\n 2  3E-07 \r\n";
    EXPECT_EQ(odfOf(*file, "svs"), expected);
    // Read without a dictionary's VR too, and the creator as stored.
    EXPECT_EQ(odfOf(*file, "implicit", EXS_LittleEndianImplicit), expected);
    EXPECT_TRUE(host.boxes.empty()) << message();
    EXPECT_NE(output("svs.hdr").find("(7FE1,0011) LO PrivateCreator = SIEMENS CSA NON-IMAGE\r\n"), std::string::npos);

    // The count in the image header wins over the series'.
    const auto both = siemensSpectrum(csaHeader({{"DataPointColumns", {"2"}}}), series,
                                      complexSingles({1.5f, 9, -2.25f, 9, 3e-7f, 9}));
    EXPECT_EQ(odfOf(*both, "both"), " 0  1.5 \r\n 1 -2.25 \r\n");

    // Unticked, the file gives its listing alone, silently, as before.
    form.boxes.ModernRead = false;
    EXPECT_EQ(odfOf(*file, "classic"), "");
    EXPECT_TRUE(written("classic.hdr"));
    EXPECT_TRUE(host.boxes.empty());
}

TEST_F(SiemensFiles, OlderCsaLayoutWithoutSignature) {
    const std::string h = csaHeader({{"SliceThickness", {"20", "", ""}}, {"DataPointColumns", {"", "1024"}}}, true);
    const CsaItem columns = findCsaItem(h, "DataPointColumns");
    EXPECT_TRUE(columns.found);
    EXPECT_EQ(columns.text, "1024");
    EXPECT_FALSE(findCsaItem(h, "DataPointRows").found);
    EXPECT_EQ(findCsaItem(h, "DataPointRows").problem, "");
}

TEST_F(SiemensFiles, BadCountsAreNamedAndTheBatchGoesOn) {
    const std::string points = complexSingles({1, 0, 2, 0});
    const std::string good = csaHeader({{"DataPointColumns", {"2"}}});
    std::string overrunItems = good;
    overrunItems[64 + 16 + 12] = '\x7F';  // the element's item count
    std::string overrunLength = good;
    overrunLength[16 + 84 + 4] = '\x40';  // the item's length
    struct Case { const char* name; std::string image; std::string data; std::string reason; };
    const std::vector<Case> cases = {
        {"elements", good.substr(0, 8) + word(1000000) + good.substr(12), points,
         "the CSA header claims 1000000 elements at byte 16, where 104 bytes are left"},
        {"items", overrunItems, points, "the CSA header claims 127 items at byte 100, where 20 bytes are left"},
        {"length", overrunLength, points,
         "the CSA header claims 64 bytes in an item at byte 116, where 4 bytes are left"},
        {"short", "SV10", points, "the CSA header is too short (4 bytes)"},
        {"absent", csaHeader({{"DataPointRows", {"2"}}}), points, "no CSA header gives DataPointColumns"},
        {"zero", csaHeader({{"DataPointColumns", {"0"}}}), points, "DataPointColumns is \"0\""},
        {"more", csaHeader({{"DataPointColumns", {"3"}}}), points, "DataPointColumns is 3, the data holds 2 points"},
    };
    for (const Case& c : cases) {
        const auto file = siemensSpectrum(c.image, csaHeader({}), c.data);
        queue(std::string(c.name) + ".dcm", saved(*file, dir.file(std::string(c.name) + ".dcm")));
    }
    const auto fine = siemensSpectrum(good, csaHeader({}), points);
    queue("fine.dcm", saved(*fine, dir.file("fine.dcm")));
    EXPECT_EQ(run(), RunOutcome::Finished);
    ASSERT_EQ(host.boxes.size(), cases.size());
    for (size_t i = 0; i < cases.size(); ++i) {
        const std::string name = cases[i].name;
        EXPECT_EQ(host.boxes[i].text, "The Siemens spectroscopy data of " + dir.file(name + ".dcm") +
                                          " could not be decoded: " + cases[i].reason);
        EXPECT_EQ(host.boxes[i].icon, BoxIcon::Exclamation);
        EXPECT_TRUE(written(name + ".hdr")) << name;
        EXPECT_FALSE(written(name + ".odf")) << name;
    }
    EXPECT_EQ(output("fine.odf"), " 0  1 \r\n 1  2 \r\n");
}

TEST_F(SiemensFiles, DataKestroCannotColumniseSaysSo) {
    DcmFileFormat spectrum;
    spectrum.getDataset()->insertEmptyElement(DCM_SpectroscopyData);
    DcmFileFormat ecg;
    DcmItem* group = nullptr;
    ASSERT_TRUE(ecg.getDataset()->findOrCreateSequenceItem(DCM_WaveformSequence, group, -2).good());
    group->putAndInsertUint16(DCM_NumberOfWaveformChannels, 1);
    auto floats = newImage(1, 2, 32);
    const Float32 values[] = {0.5f, 2};
    floats->getDataset()->putAndInsertFloat32Array(DCM_FloatPixelData, values, 2);
    const std::vector<std::pair<DcmFileFormat*, std::string>> files = {
        {&spectrum, "The spectroscopy data of %s could not be decoded: it holds no single-precision values"},
        {&ecg, "The waveform data of %s could not be decoded: its first group holds no samples"},
        {floats.get(), "The pixel data of %s could not be decoded: its values are floating-point, Kestro counts "
                       "whole stored values only"}};
    for (const bool modern : {false, true}) {
        form.boxes.ModernRead = modern;
        for (size_t i = 0; i < files.size(); ++i) {
            const std::string name = std::string(modern ? "m" : "c") + std::to_string(i);
            host.boxes.clear();
            EXPECT_EQ(odfOf(*files[i].first, name), "");
            EXPECT_TRUE(written(name + ".hdr"));
            if (!modern) {
                EXPECT_TRUE(host.boxes.empty()) << message();
                continue;
            }
            ASSERT_EQ(host.boxes.size(), 1u) << name;
            std::string expected = files[i].second;
            expected.replace(expected.find("%s"), 2, dir.file(name + ".dcm"));
            EXPECT_EQ(message(), expected);
            EXPECT_EQ(host.boxes[0].icon, BoxIcon::Exclamation);
        }
    }
}

TEST_F(SiemensFiles, ConverterShowsOneExclamation) {
    const auto file = siemensSpectrum(csaHeader({{"DataPointColumns", {"4096"}}}), "", complexSingles({1, 2}));
    saved(*file, dir.file("svs.IMA"));
    const testing::ConverterRun r = testing::runConverter(dir, "--format 20 --modern svs.IMA");
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.err, "exclamation: The Siemens spectroscopy data of " + dir.file("svs.IMA") +
                         " could not be decoded: DataPointColumns is 4096, the data holds 1 points\n");
    EXPECT_TRUE(written("svs.hdr"));
}

}  // namespace
}  // namespace kestro
