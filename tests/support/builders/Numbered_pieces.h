#pragma once

#include <array>
#include <gtest/gtest.h>
#include <string>

/// The lines that eight callers write at the same time, each with its own numbers in order: "a0", "a1", ... and "b0",
/// "b1", .... Checks that a file holds whole lines in their order.
class Numbered_pieces {
  public:
    static constexpr int callers = 8;

    static std::string piece(int caller, int number) {
        return static_cast<char>('a' + caller) + std::to_string(number) + "\n";
    }

    /// Checks the next file. The numbers of each caller must also increase from file to file.
    void expect_whole_and_in_order(const std::string& content) {
        for (std::size_t at = 0; at < content.size();) {
            const std::size_t end = content.find('\n', at);
            ASSERT_NE(end, std::string::npos) << "a piece is never cut";
            const int caller = content[at] - 'a';
            ASSERT_TRUE(caller >= 0 && caller < callers) << content.substr(at, end - at);
            int& previous = last_.at(static_cast<std::size_t>(caller));
            const int number = std::stoi(content.substr(at + 1, end - at - 1));
            EXPECT_GT(number, previous) << "each caller's pieces stay in order";
            previous = number;
            at = end + 1;
        }
        bytes_ += content.size();
    }

    /// Bytes of all files so far.
    std::size_t bytes() const { return bytes_; }

  private:
    std::array<int, callers> last_ = {-1, -1, -1, -1, -1, -1, -1, -1};
    std::size_t bytes_ = 0;
};
