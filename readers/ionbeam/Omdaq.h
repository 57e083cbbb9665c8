#pragma once
// The OMDAQ file layout, shared by the reader and by the writer of
// version-4 files: the fixed fields, and where every other field lies in
// each header version.
#include <cstdint>
#include <string>

namespace kestro {

inline constexpr int64_t OmdaqVersionAt = 0;
inline constexpr int64_t OmdaqSignatureAt = 1;
inline constexpr uint8_t OmdaqSignature = 0x42;  // "B"
inline constexpr int64_t OmdaqChannelsAt = 4;
inline constexpr int64_t OmdaqDateChars = 19;    // the target text follows the date
inline constexpr int64_t OmdaqTargetChars = 81;
// The calibration, radiation-type and data displacements count from 64
// bytes into the spectrum record.
inline constexpr int64_t OmdaqRecordBase = 64;

struct OmdaqLayout {
    int version;
    int64_t date;         // date text, then the target
    int64_t runBlock;     // beam fields just before it, elapsed time and charge after it
    int64_t spectrum;     // ADC, compression flag, maximum and total counts
    int64_t calibration;  // displacements from spectrum + OmdaqRecordBase
    int64_t radiation;    // radiation type, then the geometry
    int64_t data;
    int64_t dataOffset() const { return spectrum + OmdaqRecordBase + data; }
};

// Read top to bottom: one row per header version.
inline constexpr OmdaqLayout OmdaqLayouts[] = {
    // version, date, run block, spectrum, calibration, radiation, data
    {1, 24, 1002, 1044, 2, 23, 122},
    {2, 24, 1002, 1048, 2, 23, 122},
    {3, 24, 1002, 1056, 2, 23, 122},
    {4, 24, 1002, 3606, 2, 23, 128},
    {5, 24, 1002, 3615, 2, 103, 208},
    {6, 35, 3095, 3195, 2, 103, 208},
    {7, 35, 3095, 3195, 2, 103, 214},
    {8, 35, 3095, 3875, 2, 103, 214},
    {9, 35, 3095, 3231, 2, 107, 218},
    {10, 35, 3095, 3231, 2, 107, 220},
    {11, 35, 3095, 3891, 12, 117, 226},
    {12, 35, 3095, 3891, 34, 139, 248},
    {13, 35, 3095, 3891, 34, 139, 256},
};

// The row of a version; none outside 1 to 13.
inline const OmdaqLayout* omdaqLayout(int version) {
    for (const OmdaqLayout& row : OmdaqLayouts)
        if (row.version == version) return &row;
    return nullptr;
}

// The path up to its last "."; the whole path when it has none.
std::string pathWithoutExtension(const std::string& path);

}  // namespace kestro
