#pragma once

#include "Disturbance.h"

#include <vector>

namespace simulator {

/// The bytes of one epoch as they go over the line: frames, what disturbs them, and line ends.
class Frame_line {
  public:
    /// More than an epoch with every satellite up and noise behind every frame takes.
    static constexpr unsigned room = 4096;

    Frame_line(const Disturbance& disturbance, bool crlf) : disturbance_(disturbance), crlf_(crlf) {
        bytes_.reserve(room);
    }

    void clear() { bytes_.clear(); }

    /// Puts a whole frame and its line end behind what is there. The line end is no part of the frame, and is never
    /// disturbed.
    void append(unsigned char* frame, unsigned size) {
        disturbance_.corrupt(frame, size);
        bytes_.insert(bytes_.end(), frame, frame + size);
        if (crlf_)
            bytes_.push_back('\r');
        bytes_.push_back('\n');
        disturbance_.add_noise(bytes_);
    }

    /// The same for a text that has its line end, CR LF, already.
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
