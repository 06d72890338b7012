#pragma once

#include "Text_setting.h"

#include <glue/NV_store/NV_enum.h>
#include <glue/NV_store/NV_root.h>

#include <string>

/// The preferences that the monitor keeps from one run to the next, in its own settings file.
///
///     Preferences preferences(Preferences::default_path());
///     if (preferences.load() != Preferences::Content::damaged)
///         use(preferences.format(), preferences.stream());
///     preferences.set_stream("tcpc:port=4001");
///     if (!preferences.save(reason))
///         report(reason);
///
/// The file:
///
///     root, id 0x4D52: the file begins with the bytes "RM", which identify it
///       format   id 1   enumeration: 0 labelled, 1 comma
///       stream   id 2   array of characters, see `Text_setting`
///
/// Each save replaces the whole file or leaves it unchanged. Used by one thread.
class Preferences {
  public:
    enum class Format : unsigned { labelled, comma };

    /// The state of the file.
    enum class Content {
        none,    ///< there is no file, or no path: defaults
        intact,  ///< everything was loaded
        damaged, ///< a part is damaged: defaults; `save` replaces the file
        foreign  ///< another file, or one that cannot be read: defaults; `save` leaves it unchanged
    };

    /// Where the preferences are unless a command line says otherwise: GLUE_MONITOR_PREFERENCES from the environment
    /// when it is set, else glue/receiver_monitor.settings in XDG_CONFIG_HOME or, where that is not set, in ~/.config.
    /// \return "", no file, for an empty GLUE_MONITOR_PREFERENCES and for a user without a home
    static std::string default_path();

    /// \param path  of the file; "": no preferences are kept
    explicit Preferences(std::string path);

    const std::string& path() const { return path_; }

    Content load();
    /// Saves if a preference has changed, and makes the folders for the file. Having nothing to save is not a failure.
    /// \return false, with the reason in `reason`, when it could not be saved
    [[nodiscard]] bool save(std::string& reason);

    /// A stored number that is not a format counts as labelled.
    Format format() const;
    void set_format(Format format) { tree_.format.set(format); }

    /// The specification string of the stream that was read last; "" when there is none.
    const std::string& stream() const { return tree_.stream.text(); }
    /// A specification string that is too long for the file counts as "".
    void set_stream(const std::string& specification);

  private:
    struct Tree : NV_store::NV_root {
        static constexpr unsigned short root_id = 0x4D52; // "RM"

        Tree() : NV_root(nullptr, root_id, "receiver_monitor") { _set_root(this); }

        NV_store::NV_enum<Format> format{this, 1, Format::labelled, "format"};
        Text_setting stream{this, 2, "stream"};
    };

    Content read();

    const std::string path_;
    Content content_ = Content::none;
    Tree tree_;
};
