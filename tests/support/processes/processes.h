#pragma once

#include <csignal>
#include <fstream>
#include <gtest/gtest.h>
#include <string>
#include <sys/types.h>

/// Whether a process waits for something: its first thread, if it has several.
inline bool sleeps(pid_t process) {
    const std::string id = std::to_string(process);
    std::ifstream file("/proc/" + id + "/task/" + id + "/stat"); // an emulator answers for the process itself
    std::string number;
    std::string name;
    std::string state;
    file >> number >> name >> state;
    return state == "S";
}

/// Sends a signal to one process that the test has started. Numbers that stand for many processes, or for none that a
/// test may have started, are refused: a -1 that means "not known yet" would reach every process there is.
inline void send_signal(pid_t process, int number) {
    if (process <= 1)
        ADD_FAILURE() << process << " is no process of this test";
    else if (kill(process, number) != 0)
        ADD_FAILURE() << "process " << process << " is not there";
}
