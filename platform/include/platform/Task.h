#pragma once

#include <string>
#include <thread>

/// A named thread.
///
/// The system shows it as "vro." and its name, cut to 15 characters. The owner sees to it that the entry returns before
/// the task is destroyed; the destructor waits for that.
class Task {
  public:
    /// Nothing runs yet.
    /// \param stack_size, option_a, option_b  for makers whose systems want them; of no effect here
    explicit Task(std::string name, int stack_size = 0, int option_a = 0, int option_b = 0);
    ~Task();
    Task(const Task&) = delete;
    Task& operator=(const Task&) = delete;

    /// Starts a thread that calls `entry(argument)`; its result is dropped.
    /// \param priority, detached  for makers; of no effect here
    /// \return false, and nothing runs, when one was started already or the system cannot
    bool vro_start(int priority, void* (*entry)(void*), void* argument, bool detached);

    /// Waits until the entry has returned; at once when nothing was started.
    void join();

    const std::string& name() const { return name_; }

  private:
    std::string name_;
    std::thread thread_;
};
