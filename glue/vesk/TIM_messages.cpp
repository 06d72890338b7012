#include <glue/vesk/TIM_messages.h>

#include <platform/Debug.h>
#include <platform/Enum_wrapper.h>

#include <cstring>

namespace TIM_messages {

namespace {

// Offsets of the fields, and bits within them.
constexpr unsigned mark = 5;
constexpr unsigned heart = 6;
constexpr unsigned state_and_prod = 7;
constexpr unsigned state_bit = 4;
constexpr unsigned state_bits = 4;
constexpr unsigned prod_bit = 0;
constexpr unsigned flags = 8;
constexpr unsigned ready_bit = 6;
constexpr unsigned curv = 9;

constexpr unsigned body_length = 9;

const Enum_wrapper_& state_names() {
    static const Enum_wrapper_ names({
        {automation_unavailable, "AUTOMATION_UNAVAILABLE"},
        {automation_not_ready, "AUTOMATION_NOT_READY"},
        {automation_ready_to_enabled, "AUTOMATION_READY_TO_ENABLED"},
        {automation_enabled, "AUTOMATION_ENABLED"},
        {automation_active, "AUTOMATION_ACTIVE"},
        {automation_fault, "FAULT"},
        {automation_error, "ERROR"},
        {automation_not_available, "NOT_AVAILABLE"},
    });
    return names;
}

/// Builds the table when the library is loaded, not when the first message is printed.
[[maybe_unused]] const Enum_wrapper_& made_at_start = state_names();

/// Reports a wrong length. On purpose the report gives the length of the whole frame as the expected one.
bool has_wrong_length(const Vesk_message& message, const char* name) {
    if (message.get_msg_len() == body_length)
        return false;
    Debug::Print::critical("%s wrong message len %d vs %d\n", name, static_cast<int>(message.get_msg_len()),
                           static_cast<int>(TIM_Vesk_message::frame_size));
    return true;
}

} // namespace

const char* state_text(unsigned state) {
    return state_names().id_to_str(static_cast<int>(state));
}

TIM_Vesk_message::~TIM_Vesk_message() = default;
Msg_GS::~Msg_GS() = default;
Msg_GC::~Msg_GC() = default;

bool TIM_Vesk_message::setup(const unsigned char* src, int size) {
    const bool done = Vesk_message::setup(src, size);
    return set_uint8(mark, 1) && done;
}

bool TIM_Vesk_message::init_frame(const char* identifier) {
    if (!set_size(frame_size))
        return false;
    std::memset(get_ptr(), 0, frame_size);
    return setup(reinterpret_cast<const unsigned char*>(identifier), frame_size);
}

void TIM_Vesk_message::print(unsigned level) const {
    const char* const state = state_text(get_state());
    if (get_msg_id() == Msg_GC::id) {
        if (has_wrong_length(*this, "GC"))
            return;
        const auto flag = [this](unsigned bit) { return static_cast<int>(get_bit_msb(flags, bit)); };
        Debug::Print::print_ts(level, "GC: RDY %d, RQ %d:%d:%d:%d:%d:%d:%f HEART %X STATE %s PROD %d\n",
                               flag(ready_bit), flag(5), flag(4), flag(3), flag(2), flag(1), flag(0),
                               static_cast<double>(get_curv()), get_heart(), state, static_cast<int>(get_prod()));
        return;
    }
    const bool is_status = get_msg_id() == Msg_GS::id;
    if (is_status && has_wrong_length(*this, "GS"))
        return;
    Debug::Print::print_ts(level, "%s: HEART %X, STATE %s, PROD %d, CURV %f\n", is_status ? "GS" : "??", get_heart(),
                           state, static_cast<int>(get_prod()), static_cast<double>(get_curv()));
}

unsigned TIM_Vesk_message::get_heart() const {
    return get_uint8(heart);
}

bool TIM_Vesk_message::set_heart(unsigned value) {
    return set_uint8(heart, static_cast<std::uint8_t>(value));
}

unsigned TIM_Vesk_message::get_state() const {
    return get_bits_lsb(state_and_prod, state_bit, state_bits);
}

bool TIM_Vesk_message::set_state(unsigned value) {
    return set_bits_lsb(state_and_prod, state_bit, state_bits, value);
}

bool TIM_Vesk_message::get_prod() const {
    return get_bit_msb(state_and_prod, prod_bit);
}

bool TIM_Vesk_message::set_prod(bool on) {
    return set_bit_msb(state_and_prod, prod_bit, on);
}

float TIM_Vesk_message::get_curv() const {
    return get_float(curv);
}

bool TIM_Vesk_message::set_curv(float value) {
    return set_float(curv, value);
}

bool Msg_GS::init() {
    return init_frame("GS");
}

bool Msg_GC::init() {
    return init_frame("GC");
}

bool Msg_GC::get_ready() const {
    return get_bit_msb(flags, ready_bit);
}

bool Msg_GC::set_ready(bool on) {
    return set_bit_msb(flags, ready_bit, on);
}

bool Msg_GC::get_request(unsigned n) const {
    return n < requests && get_bit_msb(flags, n);
}

bool Msg_GC::set_request(unsigned n, bool on) {
    return n < requests && set_bit_msb(flags, n, on);
}

} // namespace TIM_messages
