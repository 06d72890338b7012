#pragma once

#include <cstdint>
#include <random>
#include <string>

/// Random numbers. The test prints the seed; to repeat a failure, set GLUE_TEST_SEED to it.
class Random {
  public:
    Random();

    /// A number from `low` to `high`, both included.
    unsigned between(unsigned low, unsigned high) {
        return std::uniform_int_distribution<unsigned>(low, high)(engine_);
    }
    bool one_in(unsigned n) { return between(1, n) == 1; }
    unsigned char byte() { return static_cast<unsigned char>(between(0, 255)); }
    std::string bytes(std::size_t count);
    std::mt19937& engine() { return engine_; }

  private:
    std::mt19937 engine_;
};

/// `count` bytes that repeat `bytes`: much faster than as many random ones.
std::string repeated(const std::string& bytes, std::size_t count);
