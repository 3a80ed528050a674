#include "edit_distance.h"

#include <ctype.h>

#include <algorithm>
#include <numeric>
#include <vector>

namespace ztemplates {

size_t editDistance(std::string_view a, std::string_view b)
{
    std::vector<size_t> row(b.size() + 1);
    std::iota(row.begin(), row.end(), size_t{0});
    for (size_t i = 0; i < a.size(); ++i) {
        size_t diagonal = row[0];
        row[0] = i + 1;
        for (size_t j = 0; j < b.size(); ++j) {
            bool const isSame = tolower(static_cast<unsigned char>(a[i])) ==
                                tolower(static_cast<unsigned char>(b[j]));
            size_t const changed = diagonal + (isSame ? 0 : 1);
            diagonal = row[j + 1];
            row[j + 1] = std::min({changed, row[j] + 1, diagonal + 1});
        }
    }
    return row.back();
}

}  // namespace ztemplates
