// Counts the bytes that a stream receives: bytes SPECIFICATION COUNT
#include <glue/data_stream/Data_stream_factory.h>

#include <platform/module_man.h>
#include <platform/waiter.h>

#include <cstdio>
#include <cstdlib>

int main(int argc, char** argv) {
    if (argc != 3)
        return 1;
    const unsigned long wanted = std::strtoul(argv[2], nullptr, 10);

    module_man modules;       // gives each sender of events its number
    waiter_descriptor waiter; // the queue of events that this thread waits on
    const auto stream = Event_sender_data_stream_create_unique(modules, argv[1], nullptr, 0, {});
    if (!stream)
        return 1; // standard error has the reason
    stream->reg_rx_waiter(&waiter, false);

    unsigned long count = 0;
    waiter_event event;
    while (count < wanted && waiter.get_event(event, Atime::now() + 10000) == 0) {
        const unsigned received = stream->bytes_avail();
        stream->drop(received);
        count += received;
    }
    stream->dereg_rx_waiter();
    std::puts(count < wanted ? "ten seconds without a byte" : "all received");
    return count < wanted ? 1 : 0;
}
