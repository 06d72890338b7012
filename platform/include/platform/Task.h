#pragma once

#include <string>
#include <thread>

/// A named thread.
///
/// The system shows it as "vro." and its name, cut to 15 characters. The destructor waits until the entry has returned:
/// the owner makes it return.
class Task {
  public:
    /// Starts nothing.
    /// \param stack_size, option_a, option_b  for makers; no effect here
    explicit Task(std::string name, int stack_size = 0, int option_a = 0, int option_b = 0);
    ~Task();
    Task(const Task&) = delete;
    Task& operator=(const Task&) = delete;

    /// Starts a thread that calls `entry(argument)`; its result is ignored.
    /// \param priority, detached  for makers; no effect here
    /// \return false, with no thread started, when one was started before or the system cannot create one
    bool vro_start(int priority, void* (*entry)(void*), void* argument, bool detached);

    /// Waits until the entry has returned; returns at once when nothing was started.
    void join();

    const std::string& name() const { return name_; }

  private:
    std::string name_;
    std::thread thread_;
};
