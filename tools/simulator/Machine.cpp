#include "Machine.h"

#include <cmath>

namespace simulator {

namespace {

/// The direction of the rows: the angle from east to north.
constexpr double row_direction = radians(35);

// Amplitude of the solution's drift in metres: within its sigmas.
constexpr double level_wander = 0.004;
constexpr double height_wander = 0.008;

/// The field's gentle hills, as metres above the level through its middle.
struct Hill {
    double height;
    double slope_east;
    double slope_north;
};

Hill hill_at(double east, double north) {
    constexpr double east_height = 1.2, north_height = 0.8;
    constexpr double east_pulse = 2 * pi / 180, north_pulse = 2 * pi / 140;
    return {east_height * std::sin(east_pulse * east) + north_height * std::cos(north_pulse * north),
            east_height * east_pulse * std::cos(east_pulse * east),
            -north_height * north_pulse * std::sin(north_pulse * north)};
}

} // namespace

Machine::Machine(const Local_frame& field, Seeded_random& random)
    : field_(field),
      starts_at_(random.between(0, track_.length())),
      east_(random_wander(level_wander, random)),
      north_(random_wander(level_wander, random)),
      up_(random_wander(height_wander, random)) {}

Machine::Wander Machine::random_wander(double amplitude, Seeded_random& random) {
    const double period = random.between(60, 300);
    const double phase = random.between(0, 2 * pi);
    return {amplitude, 2 * pi / period, phase};
}

void Machine::add(const Wander& wander, double seconds, double& position, double& velocity) {
    const double angle = wander.pulse * seconds + wander.phase;
    position += wander.amplitude * std::sin(angle);
    velocity += wander.amplitude * wander.pulse * std::cos(angle);
}

Machine::State Machine::at(double seconds) const {
    const Field_track::Pose pose = track_.at(starts_at_ + speed * seconds);
    const double heading = pose.direction + row_direction;
    const double east = pose.x * std::cos(row_direction) - pose.y * std::sin(row_direction);
    const double north = pose.x * std::sin(row_direction) + pose.y * std::cos(row_direction);
    const Hill hill = hill_at(east, north);

    Vector position = {east, north, hill.height};
    Vector velocity = {speed * std::cos(heading), speed * std::sin(heading), 0};
    velocity.z = hill.slope_east * velocity.x + hill.slope_north * velocity.y;
    add(east_, seconds, position.x, velocity.x);
    add(north_, seconds, position.y, velocity.y);
    add(up_, seconds, position.z, velocity.z);
    return {field_.position(position), field_.direction(velocity), pose.curvature};
}

} // namespace simulator
