#include <support/Child_program.h>

#include <support/Stream_bytes.h>
#include <support/descriptors.h>
#include <support/waiting.h>

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>

namespace {

/// \return the limit before
unsigned long limit_descriptors(unsigned long count) {
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    const auto before = limit.rlim_cur;
    limit.rlim_cur = count;
    if (setrlimit(RLIMIT_NOFILE, &limit) != 0)
        ADD_FAILURE() << "cannot limit the descriptors to " << count;
    return static_cast<unsigned long>(before);
}

void close_all(const std::vector<int>& descriptors) {
    for (const int fd : descriptors)
        close(fd);
}

int open_something() {
    return open("/dev/null", O_RDONLY);
}

int highest_descriptor() {
    int highest = -1;
    for (int fd = 0; fd < 65536; ++fd)
        if (is_open(fd))
            highest = fd;
    return highest;
}

} // namespace

Child_program::Child_program(std::vector<std::string> words) : words_(std::move(words)) {
    for (const std::string& word : words_)
        vector_.push_back(word.c_str());
    vector_.push_back(nullptr);
}

Child_program shell(const std::string& script) {
    return Child_program({"sh", "-c", script});
}

Child_program echo() {
    return Child_program({PATIENT_ECHO});
}

std::string output_of(Process_data_stream& stream, std::size_t count) {
    std::string output;
    eventually([&] {
        output += take_buffered(stream);
        return output.size() >= count;
    });
    return output;
}

std::string output_of(Process_data_stream& stream) {
    std::string output;
    const bool ended = eventually([&] {
        const bool finished = stream.is_finished(); // asked first: all output is there when it is
        output += take_buffered(stream);
        return finished;
    });
    EXPECT_TRUE(ended) << "the output does not end";
    return output;
}

std::string line_of(Process_data_stream& stream) {
    std::string line;
    const bool complete = eventually([&] {
        while (stream.bytes_avail() > 0) {
            const char next = static_cast<char>(stream[0]);
            stream.drop(1);
            if (next == '\n')
                return true;
            line += next;
        }
        return false;
    });
    EXPECT_TRUE(complete) << "only \"" << line << "\" came";
    return line;
}

bool no_children() {
    siginfo_t info;
    return waitid(P_ALL, 0, &info, WEXITED | WNOHANG | WNOWAIT) == -1 && errno == ECHILD;
}

std::multiset<std::string> threads_named(const std::string& prefix) {
    std::multiset<std::string> names;
    std::error_code thread_gone;
    for (const auto& thread : std::filesystem::directory_iterator("/proc/self/task", thread_gone)) {
        std::ifstream file(thread.path() / "comm");
        std::string name;
        if (std::getline(file, name) && name.compare(0, prefix.size(), prefix) == 0)
            names.insert(name);
    }
    return names;
}

Limited_descriptors::Limited_descriptors(int more) {
    const int highest = highest_descriptor();
    for (int fd = open_something(); fd >= 0; fd = open_something()) {
        if (fd > highest) {
            close(fd);
            break;
        }
        fillers_.push_back(fd);
    }
    limit_before_ = limit_descriptors(static_cast<unsigned long>(highest + 1 + more));
}

Limited_descriptors::~Limited_descriptors() {
    limit_descriptors(limit_before_);
    close_all(fillers_);
}

Many_descriptors::Many_descriptors(int first_free)
    : limit_before_(limit_descriptors(static_cast<unsigned long>(first_free) + 100)) {
    for (int fd = open_something(); fd >= 0; fd = open_something()) {
        if (fd >= first_free) {
            close(fd);
            break;
        }
        descriptors_.push_back(fd);
    }
}

Many_descriptors::~Many_descriptors() {
    close_all(descriptors_);
    limit_descriptors(limit_before_);
}
