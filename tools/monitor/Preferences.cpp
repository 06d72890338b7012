#include "Preferences.h"

#include <glue/NV_store/NV_record.h>
#include <glue/NV_store/NV_safe_file_iterator.h>

#include <platform/Debug.h>

#include <cstdlib>
#include <filesystem>
#include <system_error>

namespace {

namespace fs = std::filesystem;
using NV_store::NV_iterator;
using NV_store::NV_safe_file_iterator;
using NV_store::Record_header;

/// A variable of the environment; "" when it is not set.
std::string variable(const char* name) {
    const char* const value = std::getenv(name);
    return value ? value : "";
}

/// Collects the output of the debug printer as long as it exists.
class Quiet_library {
  public:
    Quiet_library() {
        Debug::Print::set_sink([this](std::string_view text) { output_ += text; });
    }
    ~Quiet_library() { Debug::Print::set_sink({}); }
    Quiet_library(const Quiet_library&) = delete;
    Quiet_library& operator=(const Quiet_library&) = delete;

    /// The first line of the output.
    std::string first_line() const { return output_.substr(0, output_.find('\n')); }

  private:
    std::string output_;
};

} // namespace

std::string Preferences::default_path() {
    constexpr const char* name = "/glue/receiver_monitor.settings";
    if (const char* const path = std::getenv("GLUE_MONITOR_PREFERENCES"))
        return path;
    const std::string configuration = variable("XDG_CONFIG_HOME");
    if (!configuration.empty() && configuration.front() == '/') // a relative path counts as not set
        return configuration + name;
    const std::string home = variable("HOME");
    return home.empty() ? "" : home + "/.config" + name;
}

Preferences::Preferences(std::string path) : path_(std::move(path)) {}

Preferences::Format Preferences::format() const {
    return tree_.format.value() == Format::comma ? Format::comma : Format::labelled;
}

void Preferences::set_stream(const std::string& specification) {
    if (!tree_.stream.set(specification))
        tree_.stream.set("");
}

Preferences::Content Preferences::load() {
    const Quiet_library quiet;
    content_ = read();
    if (content_ == Content::damaged)
        tree_.set_default(true);
    return content_;
}

Preferences::Content Preferences::read() {
    std::error_code error;
    const fs::file_status status = fs::status(path_, error);
    if (path_.empty() || status.type() == fs::file_type::not_found)
        return Content::none;
    if (!fs::is_regular_file(status)) // opening something else could wait for ever
        return Content::foreign;
    if (fs::file_size(path_, error) == 0)
        return Content::damaged;
    NV_safe_file_iterator file(path_.c_str());
    file.set_mode(NV_iterator::reading);
    Record_header header;
    if (!header.peek(&file) || header.id != Tree::root_id || header.kind != Record_header::opening)
        return Content::foreign;
    return load_all(tree_, file).intact ? Content::intact : Content::damaged;
}

bool Preferences::save(std::string& reason) {
    const bool has_changes = (tree_.get_flags() & NV_store::NV_item::dirty_change) != 0;
    if (path_.empty() || content_ == Content::foreign || !(has_changes || content_ == Content::damaged))
        return true;
    std::error_code error;
    const fs::path folder = fs::path(path_).parent_path();
    if (!folder.empty() && !fs::create_directories(folder, error) && error) {
        reason = "cannot make " + folder.string() + ": " + error.message();
        return false;
    }
    const Quiet_library quiet;
    if (NV_safe_file_iterator(path_.c_str()).save(tree_, NV_iterator::writing_all)) {
        content_ = Content::intact;
        return true;
    }
    reason = quiet.first_line();
    return false;
}
