#pragma once
// The ".odf" of a DICOM data set: the first spectrum of MR spectroscopy
// data, else the first channel of the first waveform group, else the
// histogram of the image's modality values. Nothing when there is none.
// Returns the warning to show when the data could not be decoded, else "".
#include <string>

#include "core/Session.h"

class DcmDataset;

namespace kestro {

std::string writeDicomColumns(Session& form, DcmDataset& dataset, const std::string& fileName, int outputNumber,
                              const std::string& odfName);

}  // namespace kestro
