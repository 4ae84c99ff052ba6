#include "tools/vekdc/app/roles.h"

#include <algorithm>
#include <array>
#include <numeric>
#include <utility>

namespace vekdc {
namespace {

constexpr std::array kRoles = {
    Role{"vgzip", "gz", Task::Compress, false, true},
    Role{"vgunzip", "gz", Task::Decompress, false, true},
    Role{"vgzcat", "gz", Task::Decompress, true, false},
    Role{"vbzip2", "bz2", Task::Compress, false, true},
    Role{"vbunzip2", "bz2", Task::Decompress, false, true},
    Role{"vbzcat", "bz2", Task::Decompress, true, false},
    Role{"vlz4", "lz4", Task::Compress, false, false},
    Role{"vunlz4", "lz4", Task::Decompress, false, false},
    Role{"vlz4cat", "lz4", Task::Decompress, true, false},
};

// Letters to add, drop or change; Levenshtein's distance, a row of his table at a time.
size_t editDistance(std::string_view a, std::string_view b) {
    std::vector<size_t> row(b.size() + 1);
    std::iota(row.begin(), row.end(), size_t{0});
    for (size_t i = 0; i < a.size(); ++i) {
        size_t diagonal = std::exchange(row[0], i + 1);
        for (size_t j = 0; j < b.size(); ++j) {
            const size_t change = diagonal + (a[i] == b[j] ? 0 : 1);
            diagonal = row[j + 1];
            row[j + 1] = std::min({change, row[j] + 1, diagonal + 1});
        }
    }
    return row.back();
}

}  // namespace

const Role* roleOf(std::string_view program) {
    program.remove_prefix(program.rfind('/') + 1);
    const auto* found = std::find_if(kRoles.begin(), kRoles.end(),
                                     [&](const Role& role) { return role.name == program; });
    return found == kRoles.end() ? nullptr : found;
}

std::vector<std::string> roleNames() {
    std::vector<std::string> names;
    names.reserve(kRoles.size());
    for (const Role& role : kRoles) names.emplace_back(role.name);
    return names;
}

std::string_view nearest(std::string_view word, const std::vector<std::string_view>& words) {
    std::string_view best;
    size_t least = word.size() / 2 + 1;  // Half of the letters must be right.
    for (const std::string_view candidate : words) {
        const size_t distance = editDistance(word, candidate);
        if (distance < least) {
            least = distance;
            best = candidate;
        }
    }
    return best;
}

}  // namespace vekdc
