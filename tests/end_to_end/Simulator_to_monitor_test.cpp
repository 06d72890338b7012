// A receiver's messages from end to end: simulated, sent through a real pipe, parsed, checked, printed.

#include <tools/simulated_epochs.h>
#include <tools/summary_text.h>

#include <glue/vesk/Vesk_printer.h>

#include <support/checks/waiting.h>
#include <support/files/Temporary_folder.h>
#include <support/processes/Program.h>

#include <algorithm>
#include <cctype>
#include <gmock/gmock.h>
#include <map>
#include <sstream>

namespace {

using Options = simulator::Simulated_receiver::Options;

/// The same options for the program's command line.
std::string arguments_for(const Options& options, int epochs) {
    std::ostringstream text;
    text << " --rate 0 --epochs " << epochs << " --seed " << options.seed << " --noise " << options.noise
         << " --corrupt " << options.corrupt << (options.crlf ? " --crlf" : "");
    return text.str();
}

Program_result piped(const std::string& simulator_arguments, const std::string& monitor_arguments) {
    const std::string command = std::string("set -o pipefail; '") + RECEIVER_SIMULATOR + "' " + simulator_arguments +
                                " | '" + RECEIVER_MONITOR + "' " + monitor_arguments;
    return Program("bash", {"-c", command}).run();
}

Program_result piped(const Options& options, int epochs, const std::string& monitor_arguments = "") {
    return piped(arguments_for(options, epochs), monitor_arguments);
}

Options with_seed(std::uint32_t seed, double disturbance = 0, bool crlf = false) {
    Options options;
    options.seed = seed;
    options.noise = disturbance;
    options.corrupt = disturbance;
    options.crlf = crlf;
    return options;
}

std::string bytes_of(const Options& options, int epochs) {
    return Received_epochs(options).next_bytes(epochs);
}

/// The line that the monitor prints for a frame. The printer gets the frame with the first character of its line end,
/// and a TC message reads that character, too, on purpose.
std::string line_for(Simulated_frame frame, const Options& options) {
    frame.bytes += options.crlf ? '\r' : '\n';
    char text[1000];
    Vesk_printer(true).snprint(frame.as<Vesk_message>(), text, sizeof text);
    return text;
}

std::vector<std::string> lines_of(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);)
        lines.push_back(line);
    return lines;
}

// ---- Which frames a disturbed line must deliver ----

/// A disturbed stream, and the places of the unchanged frames in it.
///
/// The simulator draws the frames and their disturbances from separate random numbers. So the disturbed stream has the
/// same frames in the same order as the undisturbed one of the same seed: each of them complete or with one changed
/// byte, and always with its line end. The bytes between them are noise.
///
/// An unchanged frame is still lost when it is merged with noise. Noise is everything except separate frames: random
/// bytes, changed frames, and unchanged frames that are merged. It merges with the frame after it in two cases:
/// - it has no line end of its own, so its end and the frame's beginning cannot be recognised;
/// - a part of it looks like a header, and by chance a line end is where that header's length ends: then all bytes up
///   to there look like one frame.
class Disturbed_stream {
  public:
    Disturbed_stream(const Options& options, int epochs) : options_(options), bytes_(bytes_of(options, epochs)) {
        Options undisturbed = options;
        undisturbed.noise = undisturbed.corrupt = 0;
        const std::string line_end = options.crlf ? "\r\n" : "\n";
        find_unchanged(frames_of(bytes_of(undisturbed, epochs), line_end), line_end);
        find_separate();
    }

    const std::string& bytes() const { return bytes_; }
    /// The number of unchanged frames.
    std::size_t unchanged() const { return unchanged_.size(); }
    /// The lines for the unchanged frames that are not merged with noise.
    const std::vector<std::string>& separate() const { return separate_; }

  private:
    struct Place {
        std::size_t begin;
        Simulated_frame frame;
        std::size_t end; ///< with the line end
    };

    void find_unchanged(const std::vector<Simulated_frame>& frames, const std::string& line_end) {
        std::size_t position = 0;
        for (const Simulated_frame& frame : frames) {
            const std::size_t begin = find_frame(frame.bytes, line_end, position);
            position = begin + frame.bytes.size() + line_end.size();
            if (bytes_.compare(begin, frame.bytes.size(), frame.bytes) == 0)
                unchanged_.push_back({begin, frame, position});
        }
    }

    /// Where a frame begins: after at most the longest noise, with at most one changed byte.
    std::size_t find_frame(const std::string& frame, const std::string& line_end, std::size_t from) const {
        for (std::size_t begin = from; begin <= from + simulator::Disturbance::longest_noise; ++begin) {
            if (begin + frame.size() + line_end.size() > bytes_.size())
                break;
            unsigned changed = 0;
            for (std::size_t i = 0; i < frame.size() && changed < 2; ++i)
                changed += bytes_[begin + i] != frame[i];
            if (changed < 2 && bytes_.compare(begin + frame.size(), line_end.size(), line_end) == 0)
                return begin;
        }
        ADD_FAILURE() << "no frame after byte " << from;
        return from;
    }

    void find_separate() {
        std::size_t noise_begins = 0;
        std::size_t noise_end = 0;
        for (const Place& place : unchanged_) {
            for (std::size_t i = noise_begins; i < place.begin; ++i)
                noise_end = std::max(noise_end, end_from_header(i));
            noise_begins = place.begin;
            const bool begins_a_line = place.begin == 0 || ends_line(place.begin - 1);
            if (!begins_a_line || noise_end > place.begin)
                continue;
            separate_.push_back(line_for(place.frame, options_));
            noise_begins = place.end;
        }
    }

    bool ends_line(std::size_t i) const { return i < bytes_.size() && (bytes_[i] == '\n' || bytes_[i] == '\r'); }

    /// The index after the frame that seems to begin at `i`; `i` when none does.
    std::size_t end_from_header(std::size_t i) const {
        if (i + 5 > bytes_.size())
            return i;
        const std::string digits = bytes_.substr(i + 2, 3);
        const auto identifies = [](char c) { return c >= '0' && c <= '~'; };
        const auto is_digit = [](char c) { return std::isxdigit(static_cast<unsigned char>(c)) != 0; };
        if (!identifies(bytes_[i]) || !identifies(bytes_[i + 1]) ||
            !std::all_of(digits.begin(), digits.end(), is_digit))
            return i;
        const std::size_t end = i + 5 + std::stoul(digits, nullptr, 16);
        const std::string id = bytes_.substr(i, 2);
        if ((id == "RE" || id == "ER") && ends_line(end + 1))
            return end + 2; // a reply's line end may be one byte later
        return ends_line(end) ? end + 1 : i;
    }

    Options options_;
    std::string bytes_;
    std::vector<Place> unchanged_;
    std::vector<std::string> separate_;
};

/// The first of `wanted` that is not among `lines`, in this order; none when all are.
std::string first_missing(const std::vector<std::string>& wanted, const std::vector<std::string>& lines) {
    auto line = lines.begin();
    for (const std::string& text : wanted) {
        line = std::find(line, lines.end(), text);
        if (line == lines.end())
            return text;
        ++line;
    }
    return "";
}

void expect_all_separate_frames_printed(const Options& options, int epochs) {
    const Disturbed_stream stream(options, epochs);
    ASSERT_GT(stream.separate().size(), stream.unchanged() / 2) << "too few frames are expected";
    ASSERT_LT(stream.separate().size(), stream.unchanged()) << "no frame was disturbed";

    const Program_result result = piped(options, epochs);
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(first_missing(stream.separate(), lines_of(result.output)), "") << "seed " << options.seed;
    const Summary summary(result.errors.substr(result.errors.find("~~ ")));
    EXPECT_EQ(summary.account.arrived, stream.bytes().size());
    EXPECT_EQ(summary.account.sum(), stream.bytes().size());
}

} // namespace

// ---- An undisturbed link ----

TEST(Simulator_to_monitor, every_byte_of_1000_epochs_is_accounted_for) {
    const Program_result result = piped(with_seed(1), 1000, "--quiet");
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.output, "");

    const std::string bytes = bytes_of(with_seed(1), 1000);
    std::map<std::string, std::uint64_t> sent;
    for (const Simulated_frame& frame : frames_of(bytes))
        ++sent[frame.id()];
    const Summary summary(result.errors);
    EXPECT_EQ(summary.account.arrived, bytes.size());
    EXPECT_EQ(summary.account.frames, bytes.size());
    EXPECT_EQ(summary.account.sum(), bytes.size());
    EXPECT_EQ(summary.checksum_failures, 0U);
    EXPECT_EQ((std::map<std::string, std::uint64_t>(summary.counts.begin(), summary.counts.end())), sent);
}

TEST(Simulator_to_monitor, line_feeds_after_carriage_returns_are_separators) {
    const Program_result result = piped(with_seed(1, 0, true), 100, "--quiet");
    const std::string bytes = bytes_of(with_seed(1, 0, true), 100);
    const Summary summary(result.errors);
    EXPECT_EQ(summary.account.arrived, bytes.size());
    EXPECT_EQ(summary.account.separators, frames_of(bytes, "\r\n").size());
    EXPECT_EQ(summary.account.frames, bytes.size() - summary.account.separators);
    EXPECT_EQ(summary.checksum_failures, 0U);
}

TEST(Simulator_to_monitor, every_frame_is_printed_in_order) {
    std::string expected;
    for (const Simulated_frame& frame : frames_of(bytes_of(with_seed(5), 100)))
        expected += line_for(frame, {}) + "\n";
    EXPECT_TRUE(piped(with_seed(5), 100).output == expected);
}

TEST(Simulator_to_monitor, monitor_that_ends_also_ends_an_endless_simulator) {
    const Program_result result = piped("--rate 0", "--quiet --count 1000");
    EXPECT_EQ(result.status, 0) << "both programs'";
    EXPECT_EQ(Summary(result.errors).account.noise, 0U);
}

TEST(Simulator_to_monitor, live_link_is_read_for_a_time) {
    const Stopwatch stopwatch;
    const Program_result result = piped("--rate 20", "--duration 0.3");
    EXPECT_GE(stopwatch.elapsed(), std::chrono::milliseconds(300));
    EXPECT_EQ(result.status, 0) << "both programs'";
    EXPECT_THAT(result.output, testing::StartsWith("RT ms="));
    const Summary summary(result.errors);
    EXPECT_EQ(summary.account.arrived, summary.account.sum());
    EXPECT_EQ(summary.account.noise, 0U);
    EXPECT_EQ(summary.checksum_failures, 0U);
}

// ---- A disturbed link ----

TEST(Simulator_to_monitor, every_byte_of_a_disturbed_link_is_accounted_for) {
    const Program_result result = piped(with_seed(1, 0.05), 1000, "--quiet");
    EXPECT_EQ(result.status, 0);
    const Summary summary(result.errors);
    EXPECT_EQ(summary.account.arrived, bytes_of(with_seed(1, 0.05), 1000).size());
    EXPECT_EQ(summary.account.sum(), summary.account.arrived);
    EXPECT_GT(summary.account.noise, 0U);
    EXPECT_GT(summary.checksum_failures, 0U);
}

TEST(Simulator_to_monitor, every_unchanged_frame_that_is_not_merged_with_noise_is_printed) {
    expect_all_separate_frames_printed(with_seed(1, 0.05), 1000);
}

TEST(Simulator_to_monitor, any_seed_and_any_end_of_the_stream) {
    for (std::uint32_t seed = 2; seed < 42; ++seed)
        expect_all_separate_frames_printed(with_seed(seed, 0.05, seed % 2 == 0), 30);
}
