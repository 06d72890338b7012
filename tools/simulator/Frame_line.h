#pragma once

#include "Disturbance.h"

#include <vector>

namespace simulator {

/// The bytes of one epoch as they are sent: frames, their line ends, and disturbances.
class Frame_line {
  public:
    /// More bytes than an epoch with every satellite up and noise after every frame has.
    static constexpr unsigned capacity = 4096;

    Frame_line(const Disturbance& disturbance, bool crlf) : disturbance_(disturbance), crlf_(crlf) {
        bytes_.reserve(capacity);
    }

    void clear() { bytes_.clear(); }

    /// Appends a frame and its line end. The line end is not part of the frame and is never disturbed.
    void append(unsigned char* frame, unsigned size) {
        disturbance_.corrupt(frame, size);
        bytes_.insert(bytes_.end(), frame, frame + size);
        if (crlf_)
            bytes_.push_back('\r');
        bytes_.push_back('\n');
        disturbance_.add_noise(bytes_);
    }

    /// Appends a text that has its line end, CR LF, already.
    void append_sentence(unsigned char* text, unsigned size) {
        constexpr unsigned line_end = 2;
        disturbance_.corrupt(text, size - line_end);
        bytes_.insert(bytes_.end(), text, text + size);
        disturbance_.add_noise(bytes_);
    }

    const std::vector<unsigned char>& bytes() const { return bytes_; }

  private:
    Disturbance disturbance_;
    bool crlf_;
    std::vector<unsigned char> bytes_;
};

} // namespace simulator
