#include <glue/data_stream/Line_data_stream_adapter.h>

#include "data_stream/adapter/adapting.h"
#include "detail/line_end.h"

#include <platform/Debug.h>

#include <algorithm>

using glue_detail::adapter_traces;
using glue_detail::ends_line;

namespace {

/// The number of bytes of the first line with its line end; 0 when the line is incomplete or the ring is full.
///
/// On purpose one byte less when the next line has begun.
unsigned int end_of_first_line(const Cbuf_templ<unsigned char>& ring) {
    if (ring.full())
        return 0;
    const unsigned int used = ring.size();
    bool has_content = false;
    bool has_end = false;
    for (unsigned int i = 0; i < used; ++i) {
        if (ends_line(ring.at(i)))
            has_end = has_content;
        else if (has_end)
            return i - 1;
        else
            has_content = true;
    }
    return has_end ? used : 0;
}

} // namespace

Line_data_stream_adapter::Line_data_stream_adapter(int timeout_ms, Data_stream* inner_stream)
    : timeout_(timeout_ms),
      last_release_(Atime::now()),
      inner_(inner_stream),
      staging_(staging_storage_, rx_capacity) {}

Line_data_stream_adapter::~Line_data_stream_adapter() = default;

void Line_data_stream_adapter::drop(unsigned int n) {
    Data_stream::drop(n);
    refill();
}

void Line_data_stream_adapter::drop_all() {
    Debug::Print::print_ts(adapter_traces, "Line adaptor: drop_all.\n");
    Data_stream::drop_all();
    refill();
}

unsigned int Line_data_stream_adapter::bytes_avail() {
    refill();
    return Data_stream::bytes_avail();
}

bool Line_data_stream_adapter::get_data(unsigned char* dst, unsigned int len, unsigned int offset) {
    refill();
    return Data_stream::get_data(dst, len, offset);
}

int Line_data_stream_adapter::get_data(int n) {
    _get_data();
    return rx_buffer.size() >= static_cast<unsigned int>(n); // unsigned: nothing satisfies a negative one
}

int Line_data_stream_adapter::_write(const unsigned char* data, unsigned int len) {
    return inner_->__write(data, len);
}

void Line_data_stream_adapter::refill() {
    const Mutex_guard guard(buffer_lock);
    _get_data();
}

/// Releases the first staged line, unless the receive ring holds a complete one. Acquires no lock. \return 0
int Line_data_stream_adapter::_get_data() {
    if (end_of_first_line(rx_buffer) != 0)
        return 0;
    stage();
    const Atime now = Atime::now();
    const unsigned int count = releasable(now);
    if (count != 0) {
        last_release_ = now;
        release(count);
    }
    return 0;
}

void Line_data_stream_adapter::stage() {
    const bool tracing(Debug::Print::enabled(adapter_traces));
    if (tracing) {
        if (const unsigned int raw = inner_->bytes_avail())
            Debug::Print::dprint_ts("Line adaptor: raw has %d\n", static_cast<int>(raw));
    }
    glue_detail::move_buffered(*inner_, staging_);
    if (tracing && !staging_.empty()) {
        unsigned char staged[rx_capacity];
        const unsigned int count = staging_.peek(staged, sizeof staged, 0);
        Debug::Print::dprint_ts("%s: ", "Line adaptor: staging ");
        Debug::Print::printascii(staged, count);
        Debug::Print::dprint("\n");
    }
}

/// The number of staged bytes that may be released: the first line, or all of them after the time-out.
unsigned int Line_data_stream_adapter::releasable(Atime now) const {
    const unsigned int line = end_of_first_line(staging_);
    if (line != 0 || now - last_release_ <= timeout_)
        return line;
    Debug::Print::print_ts(adapter_traces, "Line adaptor: Fwding incomplete line.\n");
    return staging_.size();
}

/// Moves bytes from the staging ring to the receive ring; those that do not fit are lost.
void Line_data_stream_adapter::release(unsigned int count) {
    while (count != 0) {
        const auto staged = staging_.used_region();
        const unsigned int piece = std::min(staged.size, count);
        rx_buffer.append(staged.begin, piece);
        staging_.consume(piece);
        count -= piece;
    }
}
