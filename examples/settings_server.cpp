// Answers a peer on standard input and output: 's' asks which settings a unit has, 'v' asks for their values.
// settings_client is such a peer. An answer is its length in two bytes, then that many bytes.
#include "Unit_settings.h"

#include <glue/NV_store/array_size.h>
#include <glue/data_stream/Posix_data_stream.h>

#include <platform/module_man.h>

#include <algorithm>
#include <iterator>

using namespace NV_store;

/// A kind of item of the application's own: which sections of a sprayer are open. Peers see it; it is not saved.
struct Sections : NV_item {
    using NV_item::NV_item;
    int get_type() const override { return DTS::Defs::type_bool; }
    int get_dimension() const override { return DTS::Defs::array; }
    bool serialise(NV_iterator*) override { return true; }
    bool deserialise(NV_iterator* it) override { return deserialise_unknown_handoff(it); }
    Serial_ret serialise(CDS::Remote::Send_buffer& buffer, unsigned short& counter) override {
        if (!serial_action_started(counter))
            return serial_ok();
        return serial_check(
            set_array_size(buffer, static_cast<unsigned char>(std::size(open))) &&
            std::all_of(std::begin(open), std::end(open), [&](bool each) { return buffer.append_BOOL(each) > 0; }));
    }
    Serial_ret deserialise(CDS::Remote::Receive_buffer&, unsigned short& counter) override {
        return serial_check(!serial_action_started(counter)); // peers cannot open them
    }
    void _print(Debug::Dumper& dumper, const char* name) const override { dumper.print_field(name, "sections"); }

    bool open[3] = {true, false, true};
};

int main() {
    module_man modules;
    Unit_settings settings(modules);
    Sections sections(&settings, 3, "sections");
    Posix_data_stream stream(0, 1);
    stream.set_read_timeout(60000); // a peer that asks nothing for a minute is gone
    for (unsigned char request = 0; static_cast<Data_stream&>(stream).get_data(&request, 1, 0); stream.drop(1)) {
        unsigned char bytes[500], length[2];
        CDS::Remote::Send_buffer answer(bytes, sizeof bytes), head(length, sizeof length);
        unsigned short all = 0; // no item is skipped
        const bool whole =
            request == 's' ? settings.serialise_structure(answer, 255) : !settings.serialise(answer, all).fail();
        if (!whole)
            return 1;
        head.append_UINT16(static_cast<std::uint16_t>(answer.size()));
        stream.write_direct(length, sizeof length);
        stream.write_direct(bytes, static_cast<unsigned>(answer.size()));
    }
}
