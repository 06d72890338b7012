#pragma once

#include <functional>
#include <string>
#include <string_view>

/// Finds NMEA sentences in what the parser of the receiver's messages takes for noise.
///
/// A line may come in several pieces of noise. Where it begins is not known, since rubbish may stand before it: a
/// sentence is what follows the last "$" of a line, "$", three to eight capital letters and digits, and a comma.
class Sentence_finder {
  public:
    /// Longer than any sentence; a line that is longer is none.
    static constexpr std::size_t longest_sentence = 255;

    /// What to do with a sentence, given without its line end.
    using Use = std::function<void(std::string& sentence)>;

    explicit Sentence_finder(Use use) : use_(std::move(use)) {}

    /// Takes the next piece of noise.
    void take(std::string_view noise);

    /// Something else than noise has come: what was not finished never will be.
    void interrupt() { line_.clear(); }

  private:
    void take(char byte);

    Use use_;
    std::string line_; ///< from its "$" on; "" when there is none
};

/// The characters between "$" and the first comma, which tell talker and kind: "GPGGA".
std::string_view kind_of_sentence(std::string_view sentence);

/// Whether a sentence has a checksum, and it is right. Tells nobody of one that is wrong.
bool has_good_checksum(std::string_view sentence);
