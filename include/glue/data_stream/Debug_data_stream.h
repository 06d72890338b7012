#pragma once

#include <glue/data_stream/Data_stream.h>

/// Prints the bytes written to it through the debug printer; nothing is ever read from it.
///
///     Debug_data_stream out(false);
///     settings.print(out);             // code that writes to a stream can write to the debug printer
///
/// **Threads.** Any thread may write; lines are never mixed.
class GLUE_EXPORT Debug_data_stream : public Data_stream {
  public:
    /// \param at_once  print every write at once, even when no line feed ends it
    explicit Debug_data_stream(bool at_once);
    ~Debug_data_stream() override;

    using Data_stream::get_data;

    /// There is nothing to fetch. \return false
    int get_data(int n) override;

    /// \return `len`
    int _write(const unsigned char* data, unsigned int len) override;

  private:
    bool print_at_once_;
};
