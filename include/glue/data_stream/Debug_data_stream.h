#pragma once

#include <glue/data_stream/Data_stream.h>

/// Prints what is written to it through the debug printer; nothing is ever read from it.
///
///     Debug_data_stream out(false);
///     settings.print(out);             // whatever can write to a stream can write to the debug printer
///
/// **Threads.** Any thread may write; a line is never torn.
class GLUE_EXPORT Debug_data_stream : public Data_stream {
  public:
    /// \param at_once  whether every write goes out at once, even when no line feed ends it
    explicit Debug_data_stream(bool at_once);
    ~Debug_data_stream() override;

    using Data_stream::get_data;

    /// \return false, always
    int get_data(int n) override;

    /// \return `len`
    int _write(const unsigned char* data, unsigned int len) override;

  private:
    bool print_at_once_;
};
