// A bad line: noise between frames, changed bytes in them.

#include "simulated_epochs.h"

#include <cmath>
#include <set>

namespace {

using Options = simulator::Simulated_receiver::Options;

constexpr int epochs = 400;

Options disturbed(double noise, double corrupt, bool crlf = false) {
    Options options;
    options.noise = noise;
    options.corrupt = corrupt;
    options.crlf = crlf;
    return options;
}

/// The indices at which two texts of the same length differ.
std::vector<std::size_t> differences(std::string_view a, std::string_view b) {
    std::vector<std::size_t> places;
    for (std::size_t i = 0; i < a.size(); ++i)
        if (a[i] != b[i])
            places.push_back(i);
    return places;
}

/// The noise after each frame, without line ends; the frames themselves are undisturbed.
std::vector<std::string> noises(const Options& options) {
    const std::string line_end = options.crlf ? "\r\n" : "\n";
    const std::string bytes = Received_epochs(options).next_bytes(epochs);
    std::vector<std::string> found;
    std::size_t position = 0;
    for (const Simulated_frame& frame : frames_of(Received_epochs().next_bytes(epochs))) {
        const std::size_t next = bytes.find(frame.bytes + line_end, position);
        if (next == std::string::npos) {
            ADD_FAILURE() << "frame " << found.size() << " is missing";
            return found;
        }
        found.push_back(bytes.substr(position, next - position));
        position = next + frame.bytes.size() + line_end.size();
    }
    EXPECT_TRUE(found.front().empty()) << "noise before the first frame";
    found.front() = bytes.substr(position); // replaced by the noise after the last frame
    return found;
}

/// The expected count for a probability, plus or minus four standard deviations.
void expect_about(std::size_t count, std::size_t of, double probability) {
    const double expected = probability * static_cast<double>(of);
    EXPECT_NEAR(static_cast<double>(count), expected, 4 * std::sqrt(expected * (1 - probability)));
}

} // namespace

TEST(Simulator_disturbance, noise_follows_the_wanted_fraction_of_frames) {
    const std::vector<std::string> found = noises(disturbed(0.25, 0));
    const auto noisy = std::count_if(found.begin(), found.end(), [](const std::string& s) { return !s.empty(); });
    ASSERT_GT(found.size(), 8000U);
    expect_about(static_cast<std::size_t>(noisy), found.size(), 0.25);
}

TEST(Simulator_disturbance, noise_is_1_to_40_bytes_of_any_value) {
    std::set<std::size_t> sizes;
    std::set<char> values;
    for (const std::string& noise : noises(disturbed(0.5, 0))) {
        sizes.insert(noise.size());
        values.insert(noise.begin(), noise.end());
    }
    EXPECT_EQ(sizes.size(), 41U);
    EXPECT_EQ(*sizes.rbegin(), 40U);
    EXPECT_EQ(values.size(), 256U);
}

TEST(Simulator_disturbance, noise_of_1_follows_every_frame) {
    for (const std::string& noise : noises(disturbed(1, 0, true)))
        ASSERT_FALSE(noise.empty());
}

TEST(Simulator_disturbance, corrupt_changes_one_byte_in_the_wanted_fraction_of_frames) {
    const std::string bytes = Received_epochs(disturbed(0, 0.1)).next_bytes(epochs);
    const std::vector<Simulated_frame> frames = frames_of(Received_epochs().next_bytes(epochs));
    std::size_t corrupted = 0;
    std::set<std::size_t> from_front;
    std::set<std::size_t> from_back;
    std::size_t position = 0;
    for (const Simulated_frame& frame : frames) {
        const std::size_t size = frame.bytes.size();
        const auto places = differences(frame.bytes, std::string_view(bytes).substr(position, size));
        ASSERT_LE(places.size(), 1U);
        ASSERT_EQ(bytes[position + size], '\n');
        position += size + 1;
        for (const std::size_t place : places) {
            ++corrupted;
            from_front.insert(place);
            from_back.insert(size - 1 - place);
        }
    }
    EXPECT_EQ(position, bytes.size());
    expect_about(corrupted, frames.size(), 0.1);
    for (std::size_t i = 0; i < 5; ++i) {
        EXPECT_EQ(from_front.count(i), 1U) << "identifier or length, byte " << i;
        EXPECT_EQ(from_back.count(i), 1U) << "body, " << i << " from the checksum";
    }
}

TEST(Simulator_disturbance, corrupt_of_1_changes_every_frame) {
    const std::string bytes = Received_epochs(disturbed(0, 1, true)).next_bytes(epochs);
    std::size_t position = 0;
    for (const Simulated_frame& frame : frames_of(Received_epochs().next_bytes(epochs))) {
        const std::size_t size = frame.bytes.size();
        ASSERT_EQ(differences(frame.bytes, std::string_view(bytes).substr(position, size)).size(), 1U);
        ASSERT_EQ(bytes.substr(position + size, 2), "\r\n");
        position += size + 2;
    }
}
