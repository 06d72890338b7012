#pragma once

#include <functional>
#include <string>
#include <string_view>

/// Finds NMEA sentences in the noise between a receiver's messages.
///
/// A line may arrive in several pieces of noise, and rubbish may precede the sentence in it. So a sentence begins at
/// the last "$" of a line: "$", three to eight capital letters and digits, and a comma. It ends with a CR, an LF or the
/// end of the input.
class Sentence_finder {
  public:
    /// Longer than any sentence; a longer line is no sentence.
    static constexpr std::size_t longest_sentence = 255;

    /// Receives a sentence, without its line end.
    using Use = std::function<void(std::string& sentence)>;

    explicit Sentence_finder(Use use) : use_(std::move(use)) {}

    /// Takes the next piece of noise.
    void take(std::string_view noise);

    /// A packet follows the noise: an unfinished sentence before it is dropped.
    void interrupt() { line_.clear(); }

    /// The input has ended, and with it the last line: a sentence in it counts although it has no line end.
    void finish() { end_line(); }

  private:
    void take(char byte);
    void end_line();

    Use use_;
    std::string line_; ///< from its "$" on; "" when it has none
};

/// The characters between "$" and the first comma, which name talker and kind: "GPGGA".
std::string_view kind_of_sentence(std::string_view sentence);

/// Whether a sentence has a checksum, and it is right. Prints nothing.
bool has_good_checksum(std::string_view sentence);
