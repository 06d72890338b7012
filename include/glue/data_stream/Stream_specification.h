#pragma once

#include <glue/export.h>

#include <optional>
#include <string>

/// The parts of a specification string, the text from which the factory makes a stream:
///
///     front/line,aim,/dev/ttyS1:115200
///     |          |   |
///     |          |   own_text: the specification of a kind
///     |          wants_aim
///     label, with its ","
///
/// An addition of ours, for programs that treat the parts separately: the factory itself splits with it.
struct Stream_specification {
    std::string label;    ///< "front/line"; "" when there is none
    bool wants_aim;       ///< whether "aim," asks for AIM frames
    std::string own_text; ///< from which one of the kinds makes its stream; not empty
};

/// A longer text is no specification: some kinds match theirs with stack in proportion to its length.
constexpr unsigned int longest_stream_specification = 4096;

/// Splits a specification string. Opens and starts nothing.
/// \return nothing when no kind can accept the text: it is empty after its prefixes, or longer than
///         `longest_stream_specification`
GLUE_EXPORT std::optional<Stream_specification> split_stream_specification(const char* spec);
