#include "streams.h"

#include <glue/data_stream/Data_stream_factory.h>

#include <platform/module_man.h>

#include <cstdio>
#include <stdexcept>

namespace streams {

namespace {

module_man modules;

} // namespace

std::unique_ptr<Event_sender_data_stream> open(const std::string& specification) {
    try {
        return Event_sender_data_stream_create_unique(modules, specification.c_str(), nullptr, 0, {});
    } catch (const std::out_of_range&) { // a port number of too many digits
        std::fprintf(stderr, "Error: a number in %s is too large\n", specification.c_str());
        return nullptr;
    }
}

} // namespace streams
