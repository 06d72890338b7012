#pragma once

#include <cstdint>
#include <random>
#include <string>

/// Random numbers whose seed is in the test's output, so that a failure can be repeated: set GLUE_TEST_SEED to it.
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

/// As many bytes as asked for out of a few random ones: much faster than that many random ones.
std::string repeated(const std::string& bytes, std::size_t count);
