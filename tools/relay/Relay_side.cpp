#include "Relay_side.h"

#include "common/streams.h"

#include <glue/data_stream/Stream_specification.h>

#include <platform/module_man.h>

namespace {

constexpr char aim_channel = 'x'; // the factory's own

module_man modules;

/// A specification without "aim,".
std::string without_aim(const Stream_specification& specification) {
    const std::string& label = specification.label;
    return (label.empty() ? label : label + ",") + specification.own_text;
}

} // namespace

std::unique_ptr<Relay_side> Relay_side::open(const std::string& specification, bool log, waiter_descriptor& waiter) {
    const auto parts = split_stream_specification(specification.c_str());
    const bool is_framed = parts && parts->wants_aim;
    auto transport = streams::open(is_framed ? without_aim(*parts) : specification);
    if (!transport)
        return nullptr;
    std::unique_ptr<Relay_side> side(new Relay_side(std::move(transport)));
    if (log)
        side->trace_ = Stream_trace(*side->transport_);
    side->transport_->reg_rx_waiter(&waiter, false);
    side->transport_->reg_tx_waiter(&waiter, false);
    if (is_framed) {
        side->add_framing(specification);
        side->frames_->reg_rx_waiter(&waiter, false);
    }
    return side;
}

Relay_side::Relay_side(std::unique_ptr<Event_sender_data_stream> transport) : transport_(std::move(transport)) {}

Relay_side::~Relay_side() {
    if (frames_)
        frames_->dereg_rx_waiter();
    transport_->dereg_rx_waiter();
    transport_->dereg_tx_waiter();
}

void Relay_side::add_framing(const std::string& specification) {
    auto [inner, outer] = Queue_end::make_pair(Queue_end::what_fits, Queue_end::whole_frames);
    transport_queue_ = std::move(inner);
    frames_queue_ = outer.get();
    frames_ = std::make_unique<AIM_data_stream_adapter>(modules, std::move(outer), aim_channel);
    frames_->set_description(specification.c_str());
    const Relay_direction::End transport(*transport_, &trace_);
    from_transport_ = std::make_unique<Relay_direction>(transport, *transport_queue_);
    to_transport_ = std::make_unique<Relay_direction>(*transport_queue_, transport);
}

Relay_direction::End Relay_side::end() {
    if (frames_)
        return *frames_;
    return {*transport_, &trace_};
}

bool Relay_side::move() {
    if (!frames_)
        return false;
    const bool has_received = from_transport_->move();
    const bool has_sent = to_transport_->move();
    return has_received || has_sent;
}

bool Relay_side::has_buffered() {
    return frames_ &&
           (from_transport_->has_buffered() || to_transport_->has_buffered() || frames_queue_->bytes_avail() > 0);
}

bool Relay_side::has_ended() {
    return transport_->has_ended();
}
