// vekdc sum: checksums of files, and lists of them in the form of other checksum tools.
#pragma once

#include <string>
#include <vector>

#include "tools/vekdc/app/work.h"

namespace vekdc {

/// The default first.
inline const std::vector<std::string> kSumAlgorithms = {"crc32", "crc32c", "bzip2", "adler32"};

struct SumOptions {
    std::string algorithm = kSumAlgorithms.front();
    bool tag = false;    ///< Lines that name the algorithm.
    bool quiet = false;  ///< When checking, say nothing of files that are as they were.
};

/// Prints a line for each file, "<hexadecimal value>  <name>" or "CRC32 (<name>) = <value>".
ExitStatus sumFiles(const std::vector<std::string>& paths, const SumOptions& options);

/// Compares files with the sums that such lists give. A line that names no algorithm has that of
/// the options.
ExitStatus checkSums(const std::vector<std::string>& lists, const SumOptions& options);

}  // namespace vekdc
