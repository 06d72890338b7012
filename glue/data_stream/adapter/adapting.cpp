#include "data_stream/adapter/adapting.h"

#include <algorithm>

void glue_detail::move_buffered(Data_stream& inner, Cbuf_templ<unsigned char>& ring) {
    while (!ring.full()) {
        const auto free = ring.free_region();
        const unsigned int count = std::min(inner.bytes_avail(), free.size);
        if (count == 0 || !inner.get_data(free.begin, count, 0))
            return;
        ring.commit(count);
        inner.drop(count);
    }
}
