#pragma once

#include "Diverted_output.h"
#include "Link_model.h"
#include "Terminal.h"
#include "View_layout.h"

#include "monitor/Link_watcher.h"

#include <functional>
#include <optional>
#include <string>

/// Shows a link on the terminal that standard output is, and obeys the keys pressed there.
///
/// A few redraws a second, each of what has changed, and never so much that a slow line could not carry it: what a
/// redraw has sent must have had its time before the next. A terminal that is held up is left alone meanwhile; the link
/// is never kept waiting.
class Live_view : public Link_watcher {
  public:
    struct Options {
        std::string source;               ///< what the link is, for the title
        bool labelled = true;             ///< the form of the last messages' texts
        std::function<void()> switch_log; ///< switches the log on or off; without it there is none
    };

    /// Takes the terminal; `problem` says when that did not work.
    explicit Live_view(Options options);

    /// Why there is no view; "" when there is one.
    const std::string& problem() const { return terminal_.problem(); }

    void see_arrival(std::uint64_t arrived) override;
    void see_packet(int kind, unsigned char* packet, unsigned len) override;
    void see_sentence(std::string_view sentence) override;
    void see_account(const Vesk_parser::Byte_counts& bytes) override;
    void see_end() override;
    /// \return false when the user wants to quit, or the terminal is gone
    bool attend() override;
    Atime due() const override { return next_look_; }

  private:
    struct Snapshot {
        live_view::Link_model model;
        Atime time;
    };

    bool obey_keys(Atime now);
    void obey(int key, Atime now);
    void switch_log(Atime now);
    void note(std::string text, Atime now);
    void pause_or_go_on(Atime now);
    void show(Atime now);
    void pace(unsigned bytes, Atime now);

    const Options options_;
    std::optional<live_view::Diverted_output> diverted_; // from when the terminal is ours to when it is given back
    live_view::Terminal terminal_;
    live_view::Link_model model_;
    std::optional<Snapshot> paused_;
    live_view::View_state state_;
    std::string said_last_;
    Atime note_ends_;
    live_view::Grid shown_{0, 0};
    bool marks_changes_ = false; // not when another page was shown
    bool hurries_ = false;
    Atime next_look_;
    Atime next_show_;
    Atime line_is_free_;
    Atime share_is_free_;
};
