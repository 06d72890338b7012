#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

/// While it lives, records the calls to the platform's file store, and replaces those for which a test returns a
/// result. For one thread.
///
///     Replaced_store_calls store;
///     store.answer = [](const std::string& call) -> std::optional<int> {
///         return call == "OpenRead a 0" ? std::optional(1) : std::nullopt;   // busy; otherwise the store is called
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

    /// The result of a call, whose other results are left unchanged; no value: the store is called.
    std::function<std::optional<int>(const std::string& call)> answer;

    /// The character that fills the whole buffer for a name, without a NUL; 0: the store is called.
    char name_filler = 0;

    /// Every call so far.
    std::vector<std::string> calls;
    /// Those that begin with this text.
    std::vector<std::string> calls_of(const std::string& beginning) const;
};
