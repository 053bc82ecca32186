#include "chart.h"

#include <algorithm>
#include <cmath>
#include <ostream>
#include <sstream>

namespace peers {

namespace {

constexpr int WIDTH = 760;
constexpr int LABEL = 150; // room for the names
constexpr int BAR = 480;   // of the longest
constexpr int ROW = 18;
constexpr int HEAD = 34;

int height(const Measure& measure)
{
    return HEAD + ROW * static_cast<int>(measure.values.size());
}

void draw_panel(std::ostream& out, const Measure& measure, int top)
{
    double least = measure.goal;
    double most = measure.goal;
    for (const Value& value : measure.values) {
        least = value.number > 0 ? std::min(least, value.number) : least;
        most = std::max(most, value.number);
    }
    const double from = std::log10(least) - 0.5;
    const auto length = [&](double number) {
        return number <= 0 ? 0.0 : std::max(0.0, (std::log10(number) - from) / (std::log10(most) - from) * BAR);
    };
    int y = top + HEAD - 8;

    out << "<text x=\"10\" y=\"" << top + 18 << "\" font-weight=\"bold\">" << measure.title << " (goal "
        << rounded(measure.goal) << ")</text>\n";
    for (const Value& value : measure.values) {
        const bool ours = &value == &measure.values.front();
        out << "<text x=\"" << LABEL - 8 << "\" y=\"" << y + 12 << "\" text-anchor=\"end\">" << value.who << "</text>"
            << "<rect x=\"" << LABEL << "\" y=\"" << y + 2 << "\" height=\"" << ROW - 5 << "\" width=\""
            << rounded(length(value.number)) << "\" fill=\"" << (ours ? "#1f6f5c" : "#9fb4c0") << "\"/>"
            << "<text x=\"" << LABEL + length(value.number) + 6 << "\" y=\"" << y + 12 << "\">" << rounded(value.number)
            << "</text>\n";
        y += ROW;
    }
    out << "<line x1=\"" << LABEL + length(measure.goal) << "\" x2=\"" << LABEL + length(measure.goal) << "\" y1=\""
        << top + HEAD - 8 << "\" y2=\"" << y << "\" stroke=\"#c0392b\" stroke-dasharray=\"3 2\"/>\n";
}

} // namespace

std::string rounded(double number)
{
    std::ostringstream text;
    const double size = std::max(std::abs(number), 1e-9);
    const double step = std::pow(10, std::floor(std::log10(size)) - 2);

    text << std::round(number / step) * step;
    return std::abs(number) < 1e-9 ? "0" : text.str();
}

void draw(std::ostream& out, const std::vector<Measure>& measures, const std::string& caption)
{
    int total = 40;
    for (const Measure& measure : measures) {
        total += height(measure);
    }
    out << "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"" << WIDTH << "\" height=\"" << total
        << "\" font-family=\"sans-serif\" font-size=\"12\">\n<rect width=\"100%\" height=\"100%\" fill=\"#ffffff\"/>\n";
    int top = 0;
    for (const Measure& measure : measures) {
        draw_panel(out, measure, top);
        top += height(measure);
    }
    out << "<text x=\"10\" y=\"" << top + 24 << "\" fill=\"#555555\">" << caption << "</text>\n</svg>\n";
}

} // namespace peers
