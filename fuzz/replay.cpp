// Runs a fuzz target without a fuzzer: on the given inputs, and on mutations of them that are the same in every run.
// usage: <name>_replay [--mutations COUNT] FILE_OR_FOLDER...
//
// An input that ends the process is saved as <program>.failed_input in the working folder, for another run of this
// program or of the fuzzer.

#include "fuzz_target.h"

#include <algorithm>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <string>
#include <unistd.h>
#include <vector>

/// Of the sanitizers, when there are any: sets what they call before they end the process.
extern "C" void __sanitizer_set_death_callback(void (*callback)()) __attribute__((weak));

namespace {

using Input = std::string;

// ---- Saving a fatal input ----

const Input* current = nullptr;
std::string failed_input_path;
std::string message_of_failed_input;

/// Makes system calls only: the process is about to die.
void save_current_input() {
    const Input* const input = current;
    current = nullptr;
    if (!input)
        return;
    const int fd = open(failed_input_path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
    if (fd < 0 || write(fd, input->data(), input->size()) != static_cast<ssize_t>(input->size()) ||
        write(STDERR_FILENO, message_of_failed_input.data(), message_of_failed_input.size()) < 0)
        return;
    close(fd);
}

extern "C" void save_input_and_die(int signal_number) {
    save_current_input();
    std::signal(signal_number, SIG_DFL);
    std::raise(signal_number);
}

/// An input with which the tested code calls `exit` is a finding, too.
void save_input_at_exit() {
    if (!current)
        return;
    save_current_input();
    _exit(1);
}

void save_fatal_inputs(const char* program) {
    failed_input_path = std::filesystem::path(program).filename().string() + ".failed_input";
    message_of_failed_input = "the input is in " + std::filesystem::absolute(failed_input_path).string() + "\n";
    for (const int signal_number : {SIGABRT, SIGFPE, SIGILL, SIGSEGV, SIGBUS})
        std::signal(signal_number, save_input_and_die);
    std::atexit(save_input_at_exit);
    if (__sanitizer_set_death_callback)
        __sanitizer_set_death_callback(save_current_input);
}

void run(const Input& input) {
    current = &input;
    LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(input.data()), input.size());
    current = nullptr;
}

// ---- Seeds ----

Input contents_of(const std::filesystem::path& file) {
    std::ifstream stream(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
}

/// A folder's files in the order of their names, so that the mutations are the same on every machine.
std::vector<Input> inputs_in(const std::filesystem::path& path) {
    if (!std::filesystem::is_directory(path))
        return {contents_of(path)};
    std::vector<std::filesystem::path> files(std::filesystem::directory_iterator(path), {});
    std::sort(files.begin(), files.end());
    std::vector<Input> inputs;
    std::transform(files.begin(), files.end(), std::back_inserter(inputs), contents_of);
    return inputs;
}

// ---- Mutations ----

class Mutator {
  public:
    explicit Mutator(const std::vector<Input>& seeds) : seeds_(seeds) {}

    /// A seed, changed in one to eight places.
    Input next() {
        Input input = seed();
        for (std::size_t changes = 1 + below(8); changes > 0; --changes)
            change(input);
        return input;
    }

  private:
    /// The distributions of the standard library differ from one library to another.
    std::size_t below(std::size_t limit) { return limit == 0 ? 0 : engine_() % limit; }
    const Input& seed() { return seeds_[below(seeds_.size())]; }
    /// A place in the input, its end included, and a count of bytes from there on.
    std::pair<std::size_t, std::size_t> range(const Input& input) {
        const std::size_t begin = below(input.size() + 1);
        return {begin, below(input.size() - begin + 1)};
    }

    void change(Input& input) {
        const auto [begin, count] = range(input);
        switch (below(6)) {
        case 0:
            input.insert(begin, 1, static_cast<char>(engine_()));
            break;
        case 1:
            if (begin < input.size())
                input[begin] = static_cast<char>(input[begin] ^ 1 << below(8));
            break;
        case 2:
            input.erase(begin, count);
            break;
        case 3:
            input.insert(begin, input.substr(begin, count));
            break;
        case 4:
            input.resize(begin);
            break;
        default: {
            const Input& other = seed();
            const auto [from, size] = range(other);
            input.insert(begin, other, from, size);
        }
        }
    }

    const std::vector<Input>& seeds_;
    std::mt19937 engine_;
};

} // namespace

int main(int argc, char** argv) {
    save_fatal_inputs(argv[0]);
    unsigned long mutations = 0;
    std::vector<Input> seeds;
    for (int i = 1; i < argc; ++i) {
        if (std::strcmp(argv[i], "--mutations") == 0 && i + 1 < argc) {
            mutations = std::strtoul(argv[++i], nullptr, 10);
            continue;
        }
        if (!std::filesystem::exists(argv[i])) {
            std::fprintf(stderr, "%s does not exist\n", argv[i]);
            return 1;
        }
        const std::vector<Input> more = inputs_in(argv[i]);
        seeds.insert(seeds.end(), more.begin(), more.end());
    }
    if (seeds.empty()) {
        std::fprintf(stderr, "usage: %s [--mutations COUNT] FILE_OR_FOLDER...\nthere are no inputs\n", argv[0]);
        return 1;
    }
    for (const Input& input : seeds)
        run(input);
    Mutator mutator(seeds);
    for (unsigned long done = 0; done < mutations; ++done)
        run(mutator.next());
    std::printf("%zu inputs and %lu mutations of them ran\n", seeds.size(), mutations);
    return 0;
}
