#pragma once

#include <string_view>

namespace platform_detail {

/// A byte made readable: printable ASCII as it is, the others as \r, \n, \t, \\ or \xHH.
class Readable_byte {
  public:
    explicit Readable_byte(unsigned char byte);
    std::string_view text() const { return {text_, length_}; }

  private:
    char text_[8];
    unsigned length_;
};

/// The current time of day: UTC, "hh:mm:ss.mmm ".
class Time_stamp {
  public:
    Time_stamp();
    std::string_view text() const { return {text_, length_}; }

  private:
    char text_[32];
    unsigned length_;
};

} // namespace platform_detail
