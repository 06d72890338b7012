#include "plots.h"

#include <algorithm>
#include <cmath>

namespace live_view {

namespace {

constexpr double degree = 3.14159265358979323846 / 180;

// Signals, dB-Hz
constexpr int strong_from = 44;
constexpr int weak_below = 36;

Style style_of(std::optional<int> strength) {
    if (!strength)
        return Style::plain;
    return *strength >= strong_from ? Style::good : *strength < weak_below ? Style::bad : Style::doubtful;
}

int rounded(double value) {
    return static_cast<int>(std::lround(value));
}

/// Maps places in the sky to cells of an area.
class Dome {
  public:
    explicit Dome(Area area)
        : row_(area.row + area.rows / 2),
          column_(area.column + area.columns / 2),
          rows_((area.rows - 1) / 2),
          columns_((area.columns - 3) / 2) {} // a number is two characters wide

    int row(double elevation, double azimuth) const {
        return row_ - rounded(distance(elevation) * rows_ * std::cos(azimuth * degree));
    }
    int column(double elevation, double azimuth) const {
        return column_ + rounded(distance(elevation) * columns_ * std::sin(azimuth * degree));
    }

  private:
    static double distance(double elevation) { return (90 - std::clamp(elevation, 0.0, 90.0)) / 90; }

    int row_, column_, rows_, columns_;
};

/// The smallest of 1, 2, 5, 10, ... times a millimetre that is not below `metres`.
double round_scale(double metres) {
    double scale = 0.001;
    for (int i = 0; scale < metres; ++i)
        scale *= i % 3 == 1 ? 2.5 : 2;
    return scale;
}

} // namespace

void draw_sky(Pen& pen, Area area, const std::vector<Satellite>& satellites) {
    const Dome dome(area);
    for (int azimuth = 0; azimuth < 360; azimuth += 15)
        pen.at(dome.row(0, azimuth), dome.column(0, azimuth)).text(".");
    pen.at(dome.row(90, 0), dome.column(90, 0)).text("+");
    for (int quarter = 0; quarter < 4; ++quarter)
        pen.at(dome.row(0, quarter * 90), dome.column(0, quarter * 90))
            .text(std::string_view("NESW").substr(static_cast<std::size_t>(quarter), 1));
    // The strongest are drawn last, on top.
    std::vector<Satellite> by_strength = satellites;
    std::stable_sort(by_strength.begin(), by_strength.end(),
                     [](const Satellite& a, const Satellite& b) { return a.strength < b.strength; });
    for (const Satellite& satellite : by_strength)
        pen.at(dome.row(satellite.elevation, satellite.azimuth), dome.column(satellite.elevation, satellite.azimuth))
            .text(formatted("%02d", satellite.number % 100), style_of(satellite.strength));
}

double draw_scatter(Pen& pen, Area area, const Position_scatter& scatter) {
    const int middle_row = area.row + area.rows / 2;
    const int middle_column = area.column + area.columns / 2;
    const auto draw = [&](const Position_scatter::Offset& offset, double scale, const char* mark, Style style) {
        pen.at(middle_row - rounded(offset.north / (2 * scale)), middle_column + rounded(offset.east / scale))
            .text(mark, style);
    };
    const auto offsets = scatter.offsets();
    double scale = 0;
    if (!offsets.empty()) {
        const int half = std::min((area.columns - 1) / 2, area.rows - 1);
        scale = round_scale(scatter.spread().reach / half);
        for (const auto& offset : offsets)
            draw(offset, scale, "*", Style::plain);
    }
    pen.at(middle_row, middle_column).text("+", Style::heading);
    if (!offsets.empty())
        draw(offsets.back(), scale, "@", Style::changed);
    return scale;
}

} // namespace live_view
