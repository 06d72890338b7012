#include "Field_track.h"

#include "Geodesy.h"

#include <algorithm>
#include <cmath>
#include <iterator>

namespace simulator {

namespace {

constexpr double field_width = (Field_track::rows - 1) * Field_track::row_spacing;

} // namespace

Field_track::Field_track() : end_{-row_length / 2, -field_width / 2, 0, 0} {
    static_assert(rows % 2 == 0);
    for (int row = 0; row < rows; ++row) {
        drive(row_length, 0);
        if (row == rows - 1)
            break;
        if (row % 2 == 0)
            turn_left(pi);
        else
            turn_right(pi);
    }
    turn_left(pi / 2);
    drive(field_width - 2 * turn_radius, 0);
    turn_left(pi / 2);
}

void Field_track::drive(double distance, double curvature) {
    pieces_.push_back({length_, end_, curvature});
    end_ = along(pieces_.back(), distance);
    length_ += distance;
}

void Field_track::turn_left(double angle) {
    drive(angle * turn_radius, 1 / turn_radius);
}

void Field_track::turn_right(double angle) {
    drive(angle * turn_radius, -1 / turn_radius);
}

Field_track::Pose Field_track::along(const Piece& piece, double distance) {
    const Pose& start = piece.start;
    if (piece.curvature == 0)
        return {start.x + distance * std::cos(start.direction), start.y + distance * std::sin(start.direction),
                start.direction, 0};
    const double direction = start.direction + distance * piece.curvature;
    return {start.x + (std::sin(direction) - std::sin(start.direction)) / piece.curvature,
            start.y - (std::cos(direction) - std::cos(start.direction)) / piece.curvature, direction, piece.curvature};
}

Field_track::Pose Field_track::at(double distance) const {
    distance = std::fmod(distance, length_);
    if (distance < 0)
        distance += length_;
    const auto next = std::upper_bound(pieces_.begin() + 1, pieces_.end(), distance,
                                       [](double d, const Piece& piece) { return d < piece.begins_at; });
    const Piece& piece = *std::prev(next);
    return along(piece, distance - piece.begins_at);
}

} // namespace simulator
