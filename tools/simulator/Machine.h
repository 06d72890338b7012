#pragma once

#include "Field_track.h"
#include "Geodesy.h"
#include "Seeded_random.h"

namespace simulator {

/// A machine that drives over its field forever, as its receiver observes it.
///
/// Its place is a smooth function of time, and its velocity is the derivative of exactly that function: path, hills
/// and the slow wandering of a satellite solution alike.
class Machine {
  public:
    static constexpr double speed = 3; ///< metres a second over the level

    struct State {
        Vector position;  ///< Earth-fixed, metres
        Vector velocity;  ///< Earth-fixed, metres a second
        double curvature; ///< of the path, 1 / metres, positive to the left
    };

    /// The seed decides where on its path the machine begins and how its solution wanders.
    Machine(const Local_frame& field, Seeded_random& random);

    /// \param seconds  since the beginning
    State at(double seconds) const;

  private:
    /// A slow swing of one coordinate.
    struct Wander {
        double amplitude;
        double pulse; ///< radians a second
        double phase;
    };

    static Wander random_wander(double amplitude, Seeded_random& random);
    static void add(const Wander& wander, double seconds, double& position, double& velocity);

    Local_frame field_;
    Field_track track_;
    double starts_at_; ///< metres along the path
    Wander east_;
    Wander north_;
    Wander up_;
};

} // namespace simulator
