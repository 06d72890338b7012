#include <support/processes/Child_program.h>

#include <support/builders/Stream_bytes.h>
#include <support/checks/waiting.h>

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <utility>

Child_program::Child_program(std::vector<std::string> words) : words_(std::move(words)) {
    for (const std::string& word : words_)
        vector_.push_back(word.c_str());
    vector_.push_back(nullptr);
}

Child_program shell(const std::string& script) {
    return Child_program({"sh", "-c", script});
}

Child_program echo() {
    return Child_program({path_of_echo()});
}

std::string path_of_echo() {
    return PATIENT_ECHO;
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
        const bool finished = stream.is_finished(); // read first: when it is true, all output is in the ring
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
    EXPECT_TRUE(complete) << "received only \"" << line << "\"";
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
