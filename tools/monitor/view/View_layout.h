#pragma once

#include "Grid.h"
#include "Link_model.h"

#include <glue/logging/logging_source.h>

#include <string>

namespace live_view {

/// What the view shows besides the link itself.
struct View_state {
    std::string source;          ///< the link's name, for the title
    bool labelled = true;        ///< the form of the latest messages
    bool paused = false;         ///< a snapshot is shown
    bool help = false;           ///< the help page is shown instead
    std::string note;            ///< the latest line on standard output or standard error
    logging_source_status log{}; ///< of the receiver's traffic
};

/// Lays a link out on a screen.
///
///     title
///     Link, Bytes
///     +----------+----------+------------+-----------+
///     | messages | sky plot | satellites | positions |     positions on wide screens only
///     +----------+----------+------------+-----------+
///     Position, Scatter, DOP, Automation, Log
///     Reply ...
///     Last ...
///     keys
///
/// A higher screen has a larger sky plot, and more replies and latest messages.
class View_layout {
  public:
    static constexpr int least_rows = 24;
    static constexpr int least_columns = 80;

    /// \param before  the current screen, for marking changed values; null marks none
    static Grid lay_out(const Link_model& model, const View_state& state, int rows, int columns, Atime now,
                        const Grid* before);
};

} // namespace live_view
