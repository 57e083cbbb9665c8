#pragma once
// Every reader the driver can call. Each takes the input file's full name by
// reference and may leave there the name of the file the two-column pass is
// to read instead.
#include <string>

#include "core/Session.h"

namespace kestro {

// Nuclear spectra
void ConvFile(Session& form, std::string& fileName);         // Genie2K .cnf
void ConvChnFile(Session& form, std::string& fileName);      // ORTEC .chn
void ConvMpaFile(Session& form, std::string& fileName, const std::string& shownName);  // FastComtec .mpa/.mp
void ConvFileOld(Session& form, std::string& fileName);      // Canberra .bin
void ConvS100File(Session& form, std::string& fileName);     // Canberra S-100 .mca
void ConvS35sFile(Session& form, std::string& fileName);     // Canberra 35/40 .mca
void ConvSpec(Session& form, std::string& fileName);         // SpecTech .spu
void ConvFileXML(Session& form, std::string& fileName);      // Bruker .spx
void ConvFileG_XML(Session& form, std::string& fileName);    // generic .xml

// Ion-beam acquisition
void ConvOMDAQ(Session& form, std::string& fileName);        // OMDAQ "_" files
void Conv2OMDAQ(Session& form, std::string& fileName);       // two-column to OMDAQ
void ConvDXP(Session& form, std::string& fileName);          // .dxp spectra
void Conv2DXP(Session& form, std::string& fileName);         // two-column to DXP
void ExtrCSV(Session& form, std::string& fileName);          // .csv columns
void ConvEVT(Session& form, std::string& fileName);          // .evt event lists

// Diffraction
void ConvAXSraw(Session& form, std::string& fileName);       // Bruker/AXS .raw
void ConvPANrd(Session& form, std::string& fileName);        // PANalytical .rd

// Analytical spectroscopy
void ConvFileSPA(Session& form, std::string& fileName);      // Thermo .spa
void ConvFileSPC(Session& form, std::string& fileName);      // Galactic .spc
void ConvShim_SPCbin(Session& form, std::string& fileName);  // Shimadzu .spc
void ConvShim_PHObin(Session& form, std::string& fileName);  // Shimadzu .pho
void ConvFileGAML(Session& form, std::string& fileName);     // GAML
void ConvFileJCAMP(Session& form, std::string& fileName);    // JCAMP-DX
void ConvATA_b(Session& form, std::string& fileName);        // TA Instruments runs

// Kestro's own readers, chosen by the "Modern readers" box, for the formats
// whose classic rules misread real files. Same outputs, names and layouts as
// the classic reader of the format; readers/modern/ holds them.
void ConvCnfFileModern(Session& form, std::string& fileName);
void ConvMpaFileModern(Session& form, std::string& fileName, const std::string& shownName);
void ConvFileXMLModern(Session& form, std::string& fileName);
void ConvAXSrawModern(Session& form, std::string& fileName);
void ConvFileSPAModern(Session& form, std::string& fileName);
void ConvFileSPCModern(Session& form, std::string& fileName);
void ConvFileGAMLModern(Session& form, std::string& fileName);
void ConvFileJCAMPModern(Session& form, std::string& fileName);

// Medical imaging
void ConvFileDICoM(Session& form, std::string& fileName);    // DICOM

}  // namespace kestro
