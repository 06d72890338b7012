#pragma once

#include <array>
#include <gtest/gtest.h>
#include <string>

/// What eight callers write side by side, each its own numbers in order: "a0", "a1", ... and "b0", "b1", ..., a line
/// each. Finds out whether a file holds whole pieces in their order.
class Numbered_pieces {
  public:
    static constexpr int callers = 8;

    static std::string piece(int caller, int number) {
        return static_cast<char>('a' + caller) + std::to_string(number) + "\n";
    }

    /// Takes the next file apart. Each caller's numbers have to grow from file to file, too.
    void expect_whole_and_in_order(const std::string& content) {
        for (std::size_t at = 0; at < content.size();) {
            const std::size_t end = content.find('\n', at);
            ASSERT_NE(end, std::string::npos) << "a piece is never cut";
            const int caller = content[at] - 'a';
            ASSERT_TRUE(caller >= 0 && caller < callers) << content.substr(at, end - at);
            int& before_this = last_.at(static_cast<std::size_t>(caller));
            const int number = std::stoi(content.substr(at + 1, end - at - 1));
            EXPECT_GT(number, before_this) << "each caller's pieces stay in order";
            before_this = number;
            at = end + 1;
        }
        bytes_ += content.size();
    }

    /// Of all files so far.
    std::size_t bytes() const { return bytes_; }

  private:
    std::array<int, callers> last_ = {-1, -1, -1, -1, -1, -1, -1, -1};
    std::size_t bytes_ = 0;
};
