// The measures drawn as bars.
#pragma once

#include "measures.h"

#include <iosfwd>

namespace peers {

// Writes an SVG drawing: a panel for each measure, its bars on a logarithmic scale, as peers lie three powers of ten
// apart.
void draw(std::ostream& out, const std::vector<Measure>& measures, const std::string& caption);

// A number with three digits that count.
std::string rounded(double number);

} // namespace peers
