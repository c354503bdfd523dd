#pragma once
// Whether a volume offset names a usable NTFS volume on a disk, and the messages that say why not.
#include <cstdint>
#include <sstream>

class RAW_DISK_IO;

// `found` tells whether an NTFS volume was seen at all; `offset` is in and out.
bool validate_volume(std::ostringstream& messages, bool& found, uint64_t& offset, RAW_DISK_IO& disk,
                     bool ignore_image_size);
