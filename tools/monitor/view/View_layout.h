#pragma once

#include "Grid.h"
#include "Link_model.h"

#include <glue/logging/logging_source.h>

#include <string>

namespace live_view {

/// What the view shows beside the link itself.
struct View_state {
    std::string source;          ///< what the link is, for the title
    bool labelled = true;        ///< the form of the last messages' texts
    bool paused = false;         ///< what is shown is how things were
    bool help = false;           ///< the page on keys instead
    std::string note;            ///< the last line that something said to standard error or output
    logging_source_status log{}; ///< of the receiver's traffic
};

/// Lays a link out on a screen.
///
///     title
///     Link, Bytes
///     +----------+----------+------------+-----------+
///     | messages | sky plot | satellites | positions |     the last on wide screens only
///     +----------+----------+------------+-----------+
///     Position, Scatter, DOP, Automation, Log
///     Reply ...
///     Last ...
///     keys
///
/// A higher screen has a larger sky, and more replies and last messages.
class View_layout {
  public:
    static constexpr int least_rows = 24;
    static constexpr int least_columns = 80;

    /// \param before  what is on the screen now, so that values that have changed are marked; null marks none
    static Grid lay_out(const Link_model& model, const View_state& state, int rows, int columns, Atime now,
                        const Grid* before);
};

} // namespace live_view
