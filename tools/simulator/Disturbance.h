#pragma once

#include "Seeded_random.h"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace simulator {

/// What a bad line does to frames, decided by a seed.
class Disturbance {
  public:
    static constexpr unsigned longest_noise = 40;

    /// The fractions, 0 to 1, of frames that noise follows and that have one byte changed.
    Disturbance(std::uint32_t seed, double noise, double corrupt)
        : random_(seed, Seeded_random::Purpose::disturbance), noise_(noise), corrupt_(corrupt) {}

    /// Gives one byte of the frame, any of them, another value; in a fraction of all calls.
    void corrupt(unsigned char* frame, unsigned size) {
        if (!random_.chance(corrupt_))
            return;
        unsigned char& byte = frame[random_.below(size)];
        byte = static_cast<unsigned char>(byte ^ (1 + random_.below(255)));
    }

    /// Appends 1 to `longest_noise` random bytes; in a fraction of all calls.
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
