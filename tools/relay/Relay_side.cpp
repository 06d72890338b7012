#include "Relay_side.h"

#include "common/streams.h"

#include <platform/module_man.h>

#include <regex>

namespace {

constexpr char aim_channel = 'x'; // as everywhere where a text asks for frames

module_man modules;

/// Takes the word that asks for frames out of a specification. \return whether it was there
bool take_aim_prefix(std::string& specification) {
    static const std::regex label("^.*/.*?,");
    static const std::string prefix = "aim,";
    std::smatch match;
    const bool labelled = std::regex_search(specification, match, label);
    const std::size_t at = labelled ? static_cast<std::size_t>(match.length()) : 0;
    if (specification.compare(at, prefix.size(), prefix) != 0)
        return false;
    specification.erase(at, prefix.size());
    return true;
}

} // namespace

std::unique_ptr<Relay_side> Relay_side::open(const std::string& specification, bool log, waiter_descriptor& waiter) {
    std::string of_transport = specification;
    const bool framed = take_aim_prefix(of_transport);
    auto transport = streams::open(of_transport);
    if (!transport)
        return nullptr;
    std::unique_ptr<Relay_side> side(new Relay_side(std::move(transport)));
    if (log)
        side->trace_ = Stream_trace(*side->transport_);
    side->transport_->reg_rx_waiter(&waiter, false);
    side->transport_->reg_tx_waiter(&waiter, false);
    if (framed) {
        side->put_frames_over(specification);
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

void Relay_side::put_frames_over(const std::string& specification) {
    auto [inner, outer] = Queue_end::make_pair(Queue_end::take_what_fits, Queue_end::whole);
    queue_ = std::move(inner);
    frames_queue_ = outer.get();
    frames_ = std::make_unique<AIM_data_stream_adapter>(modules, std::move(outer), aim_channel);
    frames_->set_description(specification.c_str());
    inwards_ = std::make_unique<Relay_direction>(Relay_direction::End{*transport_, &trace_}, *queue_);
    outwards_ = std::make_unique<Relay_direction>(*queue_, Relay_direction::End{*transport_, &trace_});
}

Relay_direction::End Relay_side::end() {
    if (frames_)
        return *frames_;
    return {*transport_, &trace_};
}

bool Relay_side::move() {
    if (!frames_)
        return false;
    const bool inwards = inwards_->move();
    const bool outwards = outwards_->move();
    return inwards || outwards;
}

bool Relay_side::has_waiting() {
    return frames_ && (inwards_->has_waiting() || outwards_->has_waiting() || frames_queue_->bytes_avail() > 0);
}

bool Relay_side::has_ended() const {
    return streams::has_ended(*transport_);
}
