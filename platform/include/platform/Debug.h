#pragma once

#include <cstdarg>
#include <functional>
#include <string_view>

namespace Debug {

/// Number of categories that can be switched one by one: 0 to 255.
constexpr unsigned category_count = 256;

/// Whether a category was on at the moment of the call to `Print::enabled`.
class Enable_token {
  public:
    constexpr explicit Enable_token(bool on) : on_(on) {}
    constexpr explicit operator bool() const { return on_; }

  private:
    bool on_;
};

/// The debug printer: diagnostics go to standard error, or to a sink that the application sets.
///
/// **Categories** are off until they are switched on, here or by the environment variable GLUE_DEBUG, a list of numbers
/// ("105,136") that is read when the program starts. Text without a category is always printed.
///
/// **Threads.** All operations may be called from any thread. Each thread composes its own line; the line is written
/// whole at its line feed (or after 8192 characters, or when the thread ends), so lines of different threads never mix.
/// `errno` is the same after a call as before it.
///
/// **Fork.** A fork waits until the sink has returned, so that the child may print, too. The unfinished line of the
/// forking thread stays in the parent.
class Print {
  public:
    /// Receives finished text: whole lines, usually one at a time. Called with the printer's lock held: it must not
    /// wait for anything that a printing thread may hold. Text that it prints itself is discarded.
    using Sink = std::function<void(std::string_view text)>;

    // ---- Switching ----

    static Enable_token enabled(unsigned category);
    static void enable(unsigned category, bool on);
    /// Replaces the sink; an empty function restores standard error.
    static void set_sink(Sink sink);

    // ---- Printing ----

    static void dprint(const char* format, ...) __attribute__((format(printf, 1, 2)));
    /// The same after a time stamp: UTC, "hh:mm:ss.mmm ".
    static void dprint_ts(const char* format, ...) __attribute__((format(printf, 1, 2)));
    /// A time stamp alone.
    static void dprint_ts();
    /// Only when `category` is on.
    static void print(unsigned category, const char* format, ...) __attribute__((format(printf, 2, 3)));
    /// Only when `category` is on, after a time stamp.
    static void print_ts(unsigned category, const char* format, ...) __attribute__((format(printf, 2, 3)));
    /// Unchanged text; a `length` of -1 means up to its NUL.
    static void printd(const char* text, int length);
    /// Unchanged bytes; `at_once` writes the line even when no line feed ends it.
    static void printc(bool at_once, const unsigned char* data, unsigned length);
    /// Bytes made readable: printable ASCII as it is, the others as `\r`, `\n`, `\t`, `\\` or `\xHH`.
    static void printascii(const unsigned char* data, unsigned length);
    /// A message that must be seen: written at once.
    static void critical(const char* format, ...) __attribute__((format(printf, 1, 2)));
    /// As `critical`, followed by the backtrace of the calling thread.
    static void print_backtrace(const char* format, ...) __attribute__((format(printf, 1, 2)));
};

} // namespace Debug

using Debug_print = Debug::Print;
