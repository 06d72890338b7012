//                         good frame
//      waiting     +----------------------> good
//         |        |                       |    ^
//         | byte   |     no good frame for |    | good frame
//         v        |      a while, bytes   v    |
//         +----> looking <-----------------+    |
//                  |  ^                         |
//      enough bytes|  | byte                    |
//      and time    v  |                         |
//               rubbish -------------------------
//
// While sentences are received, the state is "sentences" instead of "looking" and "rubbish". After a time without a
// byte, every state except "waiting" becomes "silent"; the next byte leads to "looking". The end of the link leads from
// every state to "ended". The state is not stored: it follows from the times of the last events.

#include "Link_condition.h"

#include <algorithm>

namespace live_view {

void Link_condition::bytes_received(std::uint64_t count, Atime now) {
    if (!last_byte_ || quiet_for(now) >= silence_ms)
        began_ = now;
    last_byte_ = now;
    bytes_since_good_ += count;
}

void Link_condition::good_frame_received(Atime now) {
    last_good_ = now;
    bytes_since_good_ = 0;
}

Link_state Link_condition::state(Atime now) const {
    if (ended_)
        return Link_state::ended;
    if (!last_byte_)
        return Link_state::waiting;
    if (quiet_for(now) >= silence_ms)
        return Link_state::silent;
    const bool good_since_it_began = last_good_ && *last_good_ >= began_;
    const bool patient = now - (good_since_it_began ? *last_good_ : began_) < patience_ms;
    if (good_since_it_began && patient)
        return Link_state::good;
    if (last_sentence_ && now - *last_sentence_ < patience_ms)
        return Link_state::sentences;
    const bool proof = bytes_since_good_ >= (has_been_good() ? later_proof : first_proof);
    return proof && !patient ? Link_state::rubbish : Link_state::looking;
}

} // namespace live_view
