#pragma once

#include <csignal>
#include <fstream>
#include <gtest/gtest.h>
#include <string>
#include <sys/types.h>

/// Whether a process is waiting; of several threads, the first one.
inline bool sleeps(pid_t process) {
    const std::string id = std::to_string(process);
    std::ifstream file("/proc/" + id + "/task/" + id +
                       "/stat"); // under an emulator, the file of the process is that of the emulator
    std::string number;
    std::string name;
    std::string state;
    file >> number >> name >> state;
    return state == "S";
}

/// Sends a signal to one process that the test has started. Refuses numbers that stand for several processes, or for
/// one that no test has started: a -1 that means "not known yet" would signal every process.
inline void send_signal(pid_t process, int number) {
    if (process <= 1)
        ADD_FAILURE() << process << " is no process of this test";
    else if (kill(process, number) != 0)
        ADD_FAILURE() << "process " << process << " does not exist";
}
