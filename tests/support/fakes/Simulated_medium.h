#pragma once

#include <support/builders/Random.h>
#include <support/faults/Watched_file_calls.h>

#include <algorithm>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

/// The content of the medium of a folder after a power failure.
///
/// While it exists, it records what a program does to the files of the folder: writes, truncations, flushes, renames,
/// removals, and the beginning and the end of an atomic write. For a power cut after any of these steps it computes
/// what a file may contain when the machine has started again:
/// - what was flushed is kept;
/// - any of the other writes and truncations of a file may be missing, the last one may be torn, and a file may have
///   its new length with zeros where bytes were not written;
/// - of the changes of names since the folder was flushed, the first ones are kept, in their order, as in a journal;
/// - of an atomic write nothing is kept before the commit, and everything after it.
class Simulated_medium {
  public:
    /// The content of a file; nothing: the file does not exist.
    using Content = std::optional<std::string>;

    explicit Simulated_medium(const std::string& folder, bool has_atomic_files = false)
        : folder_(folder),
          has_atomic_files_(has_atomic_files),
          initial_(files_now()),
          watched_(folder, [this](const File_call& call) { return record(call); }) {
        for (const auto& [name, content] : initial_)
            live_[name] = next_file_++;
    }

    std::size_t steps() const { return steps_.size(); }
    const std::string& step(std::size_t i) const { return steps_[i].text; }
    /// The first step whose text begins with `beginning`; `steps()` when there is none.
    std::size_t find(const std::string& beginning) const {
        const auto found = std::find_if(steps_.begin(), steps_.end(), [&](const Step& step) {
            return step.text.compare(0, beginning.size(), beginning) == 0;
        });
        return static_cast<std::size_t>(found - steps_.begin());
    }

    /// The possible contents of a file after a power cut that follows the first `count` steps: the extremes, each torn
    /// end, and some random combinations.
    std::vector<Content> after_cut(std::size_t count, const std::string& name, Random& random) const {
        const State state = replay(count);
        std::vector<Content> contents;
        for (std::size_t kept_names = 0; kept_names <= state.pending_names.size(); ++kept_names) {
            std::map<std::string, int> names = state.names;
            for (std::size_t i = 0; i < kept_names; ++i)
                state.pending_names[i](names);
            const auto found = names.find(name);
            if (found == names.end())
                contents.emplace_back();
            else
                add_contents(state.files.at(found->second), random, contents);
        }
        return contents;
    }

  private:
    static constexpr unsigned random_combinations = 10;

    struct Change {
        bool truncates = false;
        std::size_t at = 0; ///< of the bytes, or the new length
        std::string bytes;
    };
    struct File {
        std::string durable;
        std::vector<Change> pending;
        bool atomic = false;
        std::size_t size = 0; ///< as the program sees it
    };
    using Name_change = std::function<void(std::map<std::string, int>&)>;
    struct State {
        std::map<std::string, int> names; ///< as the medium has them
        std::vector<Name_change> pending_names;
        std::map<int, File> files;
    };
    struct Step {
        std::string text;
        std::function<void(State&)> apply;
    };

    // ---- Recording ----

    Watched_file_calls::Answer record(const File_call& call) {
        const auto known = live_.find(call.name);
        const int file = known == live_.end() ? -1 : known->second;
        if (call.what == "open")
            record_opening(call, file);
        else if (call.what == "write")
            add("write", [file, bytes = call.bytes](State& state) { write(state.files[file], bytes); });
        else if (call.what == "truncate")
            add("truncate", [file](State& state) { truncate(state.files[file]); });
        else if (call.what == "sync" && file >= 0)
            add("sync", [file](State& state) { settle(state.files[file]); });
        else if (call.what == "sync")
            add("sync of the folder", settle_names);
        else if (call.what == "rename")
            record_rename(call);
        else if (call.what == "unlink")
            record_removal(call);
        else if (call.what == "ioctl" && has_atomic_files_)
            return record_atomic(call, file);
        return call.what == "sync" ? Watched_file_calls::Answer(0) : std::nullopt; // the real medium would be slow
    }

    void record_opening(const File_call& call, int file) {
        if (file < 0 && (call.number & O_CREAT) != 0) {
            file = live_[call.name] = next_file_++;
            add("make " + call.name, [file, name = call.name](State& state) {
                state.files[file];
                state.pending_names.push_back([file, name](auto& names) { names[name] = file; });
            });
        }
        if ((call.number & O_TRUNC) != 0)
            add("truncate", [file](State& state) { truncate(state.files[file]); });
    }
    void record_rename(const File_call& call) {
        live_[call.to] = live_[call.name];
        live_.erase(call.name);
        add("rename", [from = call.name, to = call.to](State& state) {
            state.pending_names.push_back([from, to](auto& names) {
                names[to] = names[from];
                names.erase(from);
            });
        });
    }
    void record_removal(const File_call& call) {
        live_.erase(call.name);
        add("unlink", [name = call.name](State& state) {
            state.pending_names.push_back([name](auto& names) { names.erase(name); });
        });
    }
    int record_atomic(const File_call& call, int file) {
        const bool begins = call.number == 0xF501;
        add(begins ? "begin atomic" : "commit", [file, begins](State& state) {
            settle(state.files[file]);
            state.files[file].atomic = begins;
        });
        return 0;
    }
    void add(std::string text, std::function<void(State&)> apply) {
        steps_.push_back({std::move(text), std::move(apply)});
    }

    // ---- Replaying ----

    static void write(File& file, const std::string& bytes) {
        file.pending.push_back({false, file.size, bytes}); // every writer of settings appends
        file.size += bytes.size();
    }
    static void truncate(File& file) {
        file.pending.push_back({true, 0, ""});
        file.size = 0;
    }
    static void apply(std::string& content, const Change& change) {
        if (change.truncates) {
            content.resize(change.at);
            return;
        }
        content.resize(std::max(content.size(), change.at + change.bytes.size()));
        content.replace(change.at, change.bytes.size(), change.bytes);
    }
    static void settle(File& file) {
        for (const Change& change : file.pending)
            apply(file.durable, change);
        file.pending.clear();
    }
    static void settle_names(State& state) {
        for (const Name_change& change : state.pending_names)
            change(state.names);
        state.pending_names.clear();
    }

    State replay(std::size_t count) const {
        State state;
        int file = 0;
        for (const auto& [name, content] : initial_) {
            state.names[name] = file;
            state.files[file].durable = content;
            state.files[file++].size = content.size();
        }
        for (std::size_t i = 0; i < count; ++i)
            steps_[i].apply(state);
        return state;
    }

    // ---- The possible contents of a file ----

    static void add_contents(const File& file, Random& random, std::vector<Content>& contents) {
        contents.emplace_back(file.durable);
        if (file.atomic)
            return;
        std::string beginning = file.durable;
        for (const Change& change : file.pending) { // the first writes, the last of them whole, torn or zeros
            Change torn = change;
            torn.bytes.resize(torn.bytes.size() / 2);
            contents.emplace_back(beginning);
            apply(*contents.back(), torn);
            Change zeros = change;
            std::fill(zeros.bytes.begin(), zeros.bytes.end(), '\0');
            contents.emplace_back(beginning);
            apply(*contents.back(), zeros);
            apply(beginning, change);
            contents.emplace_back(beginning);
        }
        for (unsigned i = 0; i < random_combinations && !file.pending.empty(); ++i) {
            contents.emplace_back(file.durable);
            for (const Change& change : file.pending)
                if (random.one_in(2))
                    apply(*contents.back(), change);
        }
    }

    std::map<std::string, std::string> files_now() const {
        std::map<std::string, std::string> files;
        for (const auto& entry : std::filesystem::directory_iterator(folder_)) {
            std::ifstream file(entry.path(), std::ios::binary);
            files[entry.path().filename().string()] = std::string(std::istreambuf_iterator<char>(file), {});
        }
        return files;
    }

    std::string folder_;
    bool has_atomic_files_;
    std::map<std::string, std::string> initial_;
    std::map<std::string, int> live_; ///< the file of each name, as the program sees it
    int next_file_ = 0;
    std::vector<Step> steps_;
    Watched_file_calls watched_;
};
