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
/// It updates the screen a few times a second and sends only changes. On a slow line an update waits until the previous
/// one has been transmitted. While the terminal accepts no output, nothing is sent; the link never waits for the
/// screen.
class Live_view : public Link_watcher {
  public:
    struct Options {
        std::string source;               ///< the link's name, for the title
        bool labelled = true;             ///< the form of the latest messages
        std::function<void()> switch_log; ///< switches the log on or off; empty without a log
    };

    /// Acquires the terminal; `problem` has the reason when that fails.
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
    Atime due() const override { return next_poll_; }

  private:
    struct Snapshot {
        live_view::Link_model model;
        Atime time;
    };

    bool obey_keys(Atime now);
    void obey(int key, Atime now);
    void switch_log(Atime now);
    void note(std::string text, Atime now);
    void toggle_pause(Atime now);
    void show(Atime now);
    void pace(unsigned bytes, Atime now);

    const Options options_;
    std::optional<live_view::Diverted_output> diverted_; // outlives the terminal: nothing is written onto the screen
    live_view::Terminal terminal_;
    live_view::Link_model model_;
    std::optional<Snapshot> paused_;
    live_view::View_state state_;
    std::string noted_last_;
    Atime note_ends_;
    live_view::Grid shown_{0, 0};
    bool marks_changes_ = false; // false after another page was shown
    bool is_urgent_ = false;     // show at the next poll
    Atime next_poll_;
    Atime next_show_;
    Atime line_free_at_;
    Atime average_met_at_;
};
