// Readers whose input formats Kestro does not read yet. Each says so plainly
// through a run-time error, which the driver shows like any other.
#include "core/runtime/RuntimeError.h"
#include "readers/Readers.h"

namespace kestro {

namespace {

[[noreturn]] void notAvailable(const char* format) {
    raise(err::NotAvailable, std::string("The ") + format + " input format is not available yet");
}

}  // namespace

void ConvOMDAQ(Session&, std::string&) { notAvailable("OMDAQ"); }
void Conv2OMDAQ(Session&, std::string&) { notAvailable("OMDAQ output"); }
void ConvDXP(Session&, std::string&) { notAvailable("DXP"); }
void Conv2DXP(Session&, std::string&) { notAvailable("DXP output"); }
void ExtrCSV(Session&, std::string&) { notAvailable("CSV"); }
void ConvEVT(Session&, std::string&) { notAvailable("EVT event list"); }
void ConvAXSraw(Session&, std::string&) { notAvailable("Bruker/AXS RAW"); }
void ConvPANrd(Session&, std::string&) { notAvailable("PANalytical RD"); }
void ConvFileSPA(Session&, std::string&) { notAvailable("Thermo SPA"); }
void ConvFileSPC(Session&, std::string&) { notAvailable("Galactic SPC"); }
void ConvShim_SPCbin(Session&, std::string&) { notAvailable("Shimadzu SPC"); }
void ConvShim_PHObin(Session&, std::string&) { notAvailable("Shimadzu PHO"); }
void ConvFileGAML(Session&, std::string&) { notAvailable("GAML"); }
void ConvFileJCAMP(Session&, std::string&) { notAvailable("JCAMP-DX"); }
void ConvATA_b(Session&, std::string&) { notAvailable("TA Instruments"); }
void ConvFileDICoM(Session&, std::string&) { notAvailable("DICOM"); }

}  // namespace kestro
