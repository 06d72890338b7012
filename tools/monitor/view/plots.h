#pragma once

#include "Link_model.h"
#include "Pen.h"

#include <vector>

/// The view's tables and plots. Each draws inside its area only.
namespace live_view {

/// Identifier, count and rate of each message, in two columns.
void draw_messages(Pen& pen, Area area, const Link_model& model, Atime now);
constexpr int message_table_columns = 29;

/// Each satellite's number at its place: zenith in the middle, horizon at the rim, north up. Styled by its signal.
void draw_sky(Pen& pen, Area area, const std::vector<Satellite>& satellites);

/// Each satellite's number, elevation, azimuth and signal, in two columns; "-" marks the unused ones.
void draw_satellites(Pen& pen, Area area, const std::vector<Satellite>& satellites);
constexpr int satellite_table_columns = 27;

/// The last positions around their mean: north up, the latest as "@". A row is as high as two columns are wide.
/// \return metres per column; 0 without positions
double draw_scatter(Pen& pen, Area area, const Position_scatter& scatter);

} // namespace live_view
