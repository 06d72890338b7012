#pragma once

#include <vector>

namespace simulator {

/// The closed path that the machine drives over its field: rows side by side, a half circle at each headland into the
/// next row, and along the headland back to the first one.
///
/// The rows run along x. Metres; the field's middle is the origin; angles count from x to y.
class Field_track {
  public:
    static constexpr int rows = 10; ///< an even number: the last row ends where the first began
    static constexpr double row_length = 200;
    static constexpr double row_spacing = 12;
    static constexpr double turn_radius = row_spacing / 2;

    struct Pose {
        double x;
        double y;
        double direction; ///< the driving direction, radians
        double curvature; ///< 1 / metres, positive to the left
    };

    Field_track();

    /// Metres once around.
    double length() const { return length_; }
    /// The point after `distance` metres, which may be any number.
    Pose at(double distance) const;

  private:
    /// A straight line or, with a curvature, an arc; to the left when that is positive.
    struct Piece {
        double begins_at; ///< metres from the beginning of the path
        Pose start;
        double curvature;
    };

    void drive(double distance, double curvature);
    void turn_left(double angle);
    void turn_right(double angle);
    static Pose along(const Piece& piece, double distance);

    std::vector<Piece> pieces_;
    double length_ = 0;
    Pose end_;
};

} // namespace simulator
