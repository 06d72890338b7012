#pragma once

#include <glue/vesk/GNSS_messages.h>

#include <simulator/Simulated_receiver.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <string_view>
#include <vector>

/// One frame without its line end.
struct Simulated_frame {
    std::string bytes;

    std::string id() const { return bytes.substr(0, 2); }
    template <typename Message>
    Message as() {
        return Message(reinterpret_cast<unsigned char*>(bytes.data()), static_cast<unsigned>(bytes.size()));
    }
};

/// Cuts undisturbed bytes into frames by their length digits; every frame must have its line end.
inline std::vector<Simulated_frame> frames_of(std::string_view bytes, std::string_view line_end = "\n") {
    std::vector<Simulated_frame> frames;
    while (!bytes.empty()) {
        if (bytes.size() < 5) {
            ADD_FAILURE() << "half a frame at the end";
            break;
        }
        const std::size_t size = 5 + std::stoul(std::string(bytes.substr(2, 3)), nullptr, 16);
        if (bytes.substr(std::min(size, bytes.size()), line_end.size()) != line_end) {
            ADD_FAILURE() << "no line end after frame " << frames.size();
            break;
        }
        frames.push_back({std::string(bytes.substr(0, size))});
        bytes.remove_prefix(size + line_end.size());
    }
    return frames;
}

/// A simulated receiver's messages of one epoch.
class Simulated_epoch {
  public:
    explicit Simulated_epoch(std::string_view bytes, std::string_view line_end = "\n")
        : frames_(frames_of(bytes, line_end)) {}

    std::vector<Simulated_frame>& frames() { return frames_; }

    bool has(std::string_view id) const {
        return std::any_of(frames_.begin(), frames_.end(), [=](const Simulated_frame& f) { return f.id() == id; });
    }

    /// The epoch's message of this class.
    template <typename Message>
    Message get() {
        for (Simulated_frame& frame : frames_)
            if (frame.as<Message>().get_msg_id() == Message::id)
                return frame.as<Message>();
        ADD_FAILURE() << "the epoch has no such message";
        return Message(nullptr, 0);
    }

    /// The first `satellites()` entries of a list.
    template <typename List>
    std::vector<int> list() {
        const List message = get<List>();
        std::vector<int> entries;
        for (unsigned i = 0; i < satellites(); ++i)
            entries.push_back(message.get_entry(i));
        return entries;
    }

    unsigned satellites() { return get<GNSS_messages::Msg_SI>().get_num_entries(); }

  private:
    std::vector<Simulated_frame> frames_;
};

/// A simulated receiver whose bytes a test receives.
class Received_epochs {
  public:
    explicit Received_epochs(const simulator::Simulated_receiver::Options& options = {})
        : receiver_(options), line_end_(options.crlf ? "\r\n" : "\n") {}

    std::string next_bytes() {
        const std::vector<unsigned char>& bytes = receiver_.next_epoch();
        return std::string(bytes.begin(), bytes.end());
    }
    std::string next_bytes(int epochs) {
        std::string bytes;
        for (int i = 0; i < epochs; ++i)
            bytes += next_bytes();
        return bytes;
    }
    Simulated_epoch next() { return Simulated_epoch(next_bytes(), line_end_); }

  private:
    simulator::Simulated_receiver receiver_;
    std::string line_end_;
};

/// Options with a long interval between epochs, so that hours pass quickly.
inline simulator::Simulated_receiver::Options epochs_every(std::int64_t interval_ms) {
    simulator::Simulated_receiver::Options options;
    options.interval_ms = interval_ms;
    return options;
}
