#pragma once
// The ".odf" of a DICOM data set: the first spectrum of MR spectroscopy
// data, else the first channel of the first waveform group, else the
// histogram of the image's modality values. Nothing when there is none.
#include <string>

#include "core/Session.h"

class DcmDataset;

namespace kestro {

void writeDicomColumns(Session& form, DcmDataset& dataset, const std::string& fileName, int outputNumber,
                       const std::string& odfName);

}  // namespace kestro
