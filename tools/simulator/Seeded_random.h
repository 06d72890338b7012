#pragma once

#include <cstdint>
#include <random>

namespace simulator {

/// Random numbers from a seed: the same ones on every machine, which the standard library's distributions do not
/// guarantee.
class Seeded_random {
  public:
    /// What the numbers are for. Each purpose has a sequence of its own, so that more numbers for one purpose do not
    /// change the others: the positions are the same with and without disturbance.
    enum class Purpose : std::uint32_t { world = 1, sky = 2, disturbance = 3 };

    Seeded_random(std::uint32_t seed, Purpose purpose) {
        std::seed_seq sequence{seed, static_cast<std::uint32_t>(purpose)};
        engine_.seed(sequence);
    }

    /// A whole number from 0 to `limit` - 1; `limit` is at least 1.
    std::uint32_t below(std::uint32_t limit) { return static_cast<std::uint32_t>(next() * limit >> 32); }

    /// A number from `low` up to, but not including, `high`.
    double between(double low, double high) { return low + (high - low) * (static_cast<double>(next()) / two_to_32); }

    /// True in this fraction of all calls: never for 0, always for 1.
    bool chance(double fraction) { return static_cast<double>(next()) < fraction * two_to_32; }

    unsigned char byte() { return static_cast<unsigned char>(below(256)); }

  private:
    static constexpr double two_to_32 = 4294967296.0;

    /// 32 random bits.
    std::uint64_t next() { return engine_() & 0xFFFFFFFFU; }

    std::mt19937 engine_;
};

} // namespace simulator
