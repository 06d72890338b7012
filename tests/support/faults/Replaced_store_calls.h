#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

/// Records the calls to the platform's file store while it lives, and answers in the store's place where a test says
/// so. For one thread.
///
///     Replaced_store_calls store;
///     store.answer = [](const std::string& call) -> std::optional<int> {
///         return call == "OpenRead a 0" ? std::optional(1) : std::nullopt;   // busy; else what the store answers
///     };
///
/// The calls as texts: "IsMounted", "Info", "Exists a", "Remove a", "GetFileName 3", "OpenRead a 500", "Read 32 0",
/// "CloseRead 0", "OpenWrite a", "CreateWrite a", "Write 5 -1", "CloseWrite -1".
class Replaced_store_calls {
  public:
    Replaced_store_calls();
    ~Replaced_store_calls();
    Replaced_store_calls(const Replaced_store_calls&) = delete;
    Replaced_store_calls& operator=(const Replaced_store_calls&) = delete;

    /// What a call returns, with its other results left as they are; nothing: what the store says.
    std::function<std::optional<int>(const std::string& call)> answer;

    /// What is filled into the room for a name, all of it and without a NUL; 0: what the store says.
    char name_filler = 0;

    /// Every call so far.
    std::vector<std::string> calls;
    /// Those that begin so.
    std::vector<std::string> calls_of(const std::string& beginning) const;
};
