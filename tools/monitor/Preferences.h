#pragma once

#include "Text_setting.h"

#include <glue/NV_store/NV_enum.h>
#include <glue/NV_store/NV_root.h>

#include <string>

/// What the monitor remembers from one run to the next, in a settings file of its own.
///
///     Preferences preferences(Preferences::default_path());
///     if (preferences.load() != Preferences::Content::damaged)
///         use(preferences.format(), preferences.stream());
///     preferences.set_stream("tcpc:port=4001");
///     preferences.save();
///
/// The file:
///
///     root, id 0x4D52: a file begins with the bytes "RM", and so is known as one of these
///       format   id 1   enumeration: 0 labelled, 1 comma
///       stream   id 2   array of characters, see `Text_setting`
///
/// It is replaced as a whole or not at all. Used by one thread.
class Preferences {
  public:
    enum class Format : unsigned { labelled, comma };

    /// What was found in the file.
    enum class Content {
        none,    ///< there is no file, or none was named: defaults
        intact,  ///< all of it
        damaged, ///< not all of it is good: defaults; `save` replaces it
        foreign  ///< another file, or none that can be read: defaults; `save` leaves it alone
    };

    /// Where the preferences are unless a command line says otherwise: GLUE_MONITOR_PREFERENCES from the environment
    /// when it is set, else glue/receiver_monitor.settings in XDG_CONFIG_HOME or, where that is not set, in ~/.config.
    /// \return "": nowhere. That is what an empty GLUE_MONITOR_PREFERENCES says, and a user without a home.
    static std::string default_path();

    /// \param path  of the file; "": nothing is remembered
    explicit Preferences(std::string path);

    const std::string& path() const { return path_; }

    Content load();
    /// Saves what has changed, and makes the folders for it. Nothing to save is no failure.
    /// \return false, with `reason` saying why, when it is not saved
    bool save(std::string& reason);

    /// A stored format that is none counts as labelled.
    Format format() const;
    void set_format(Format format) { tree_.format.set(format); }

    /// The specification of the stream that was read last; "" when there is none.
    const std::string& stream() const { return tree_.stream.text(); }
    /// One that is too long for the file is as good as none.
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
