#pragma once

#include "Seeded_random.h"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace simulator {

/// Disturbs frames as a bad line does. The seed decides how.
class Disturbance {
  public:
    static constexpr unsigned longest_noise = 40;

    /// \param noise, corrupt  the fractions, 0 to 1, of frames that noise follows and that have one byte changed
    Disturbance(std::uint32_t seed, double noise, double corrupt)
        : random_(seed, Seeded_random::Purpose::disturbance), noise_(noise), corrupt_(corrupt) {}

    /// Changes one random byte of the frame, in the given fraction of all calls.
    void corrupt(unsigned char* frame, unsigned size) {
        if (!random_.chance(corrupt_))
            return;
        unsigned char& byte = frame[random_.below(size)];
        byte = static_cast<unsigned char>(byte ^ (1 + random_.below(255)));
    }

    /// Appends 1 to `longest_noise` random bytes, in the given fraction of all calls.
    void add_noise(std::vector<unsigned char>& bytes) {
        if (!random_.chance(noise_))
            return;
        const unsigned count = 1 + random_.below(longest_noise);
        for (unsigned i = 0; i < count; ++i)
            bytes.push_back(random_.byte());
    }

  private:
    Seeded_random random_;
    double noise_;
    double corrupt_;
};

} // namespace simulator
