#pragma once

#include <cstdarg>
#include <functional>
#include <string_view>

namespace Debug {

/// Number of categories that can be switched one by one: 0 to 255.
constexpr unsigned category_count = 256;

/// Says, at the moment it is asked for, whether a category is switched on.
class Enable_token {
  public:
    constexpr explicit Enable_token(bool on) : on_(on) {}
    constexpr explicit operator bool() const { return on_; }

  private:
    bool on_;
};

/// Where diagnostics go: standard error, or any sink that the application sets.
///
/// Each thread composes its line on its own; the line goes out whole at its line feed (or after 8192 characters, or
/// when the thread ends), so lines of different threads never mix. All operations may be called from any thread.
/// `errno` is the same after a call as before it. A fork waits for the sink to return, so that the child may print,
/// too; what the forking thread has composed of a line stays the parent's. Categories are off until switched on, here
/// or by the environment variable GLUE_DEBUG, a list of numbers ("105,136") read as the program starts; text printed
/// without a category always goes out.
class Print {
  public:
    /// Takes finished text: whole lines, usually one at a time. Called with the printer's lock held: it must not wait
    /// for anything that a printing thread may hold. What it prints itself is discarded.
    using Sink = std::function<void(std::string_view text)>;

    // ---- Switching ----

    static Enable_token enabled(unsigned category);
    static void enable(unsigned category, bool on);
    /// Replaces the sink; an empty function brings standard error back.
    static void set_sink(Sink sink);

    // ---- Printing ----

    static void dprint(const char* format, ...) __attribute__((format(printf, 1, 2)));
    /// The same behind a time stamp: UTC, "hh:mm:ss.mmm ".
    static void dprint_ts(const char* format, ...) __attribute__((format(printf, 1, 2)));
    /// A time stamp alone.
    static void dprint_ts();
    /// Only when `category` is on.
    static void print(unsigned category, const char* format, ...) __attribute__((format(printf, 2, 3)));
    /// Only when `category` is on, behind a time stamp.
    static void print_ts(unsigned category, const char* format, ...) __attribute__((format(printf, 2, 3)));
    /// Text as it stands; a `length` of -1 means up to its NUL.
    static void printd(const char* text, int length);
    /// Bytes as they stand; `at_once` sends the line out even when no line feed ends it.
    static void printc(bool at_once, const unsigned char* data, unsigned length);
    /// Bytes made readable: printable ASCII as it is, the others as `\r`, `\n`, `\t`, `\\` or `\xHH`.
    static void printascii(const unsigned char* data, unsigned length);
    /// Something that somebody must see: goes out at once.
    static void critical(const char* format, ...) __attribute__((format(printf, 1, 2)));
    /// As `critical`, followed by the calls that led here.
    static void print_backtrace(const char* format, ...) __attribute__((format(printf, 1, 2)));
};

} // namespace Debug

using Debug_print = Debug::Print;
