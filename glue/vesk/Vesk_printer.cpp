#include <glue/vesk/Vesk_printer.h>

#include "detail/Line_writer.h"

#include <platform/Ascii_message.h>

#include <cstdio>

using glue_detail::Line_writer;
using namespace GNSS_messages;

namespace {

/// Prints one line at once. \return its length in `buf`
int print_line(char* buf, int size, const char* format, ...) __attribute__((format(printf, 3, 4)));

int print_line(char* buf, int size, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    Line_writer line(buf, size);
    line.append_list(format, arguments);
    va_end(arguments);
    return line.length();
}

/// On purpose: some formats print an unsigned number as a signed one.
int as_signed(std::uint32_t value) {
    return static_cast<int>(value);
}

/// Prints the identifier and every entry times `unit`.
template <typename List>
int print_list(const List& list, bool verbose, char* buf, int size, int unit = 1) {
    constexpr int first = List::id & 0xFF;
    constexpr int second = List::id >> 8;
    if (list.get_msg_len() < List::bytes_behind) {
        std::printf("%c%c message too short\n", first, second);
        return 0;
    }
    Line_writer line(buf, size);
    line.append("%c%c", first, second);
    const unsigned entries = list.get_num_entries();
    for (unsigned i = 0; i < entries; ++i)
        line.append(verbose ? " %d" : ",%d", list.get_entry(i) * unit);
    return line.length();
}

/// Prints the whole frame unchanged, up to its first NUL. \return its length, also when it was cut
int print_text(const Vesk_printer&, const Vesk_message& m, char* buf, int size) {
    const Ascii_message text(m, false);
    return Line_writer(buf, size).append("%.*s", static_cast<int>(text.get_length()), text.get_text());
}

/// Reports the identifier on standard error and prints the frame's bytes. \return 0
int print_unknown(const Vesk_message& m, char* buf, int size) {
    const int first = m.get_uint8(0);
    const int second = m.get_uint8(1);
    std::fprintf(stderr, "UNKNOWN %c%c\n", first, second);

    Line_writer line(buf, size);
    line.append("%c%c ???: ", first, second);
    for (unsigned offset = 0; offset < m.get_size(); ++offset)
        line.append(" %02x", m.get_uint8(offset));
    line.append("\n");
    return 0;
}

template <typename Message>
int print_as(const Vesk_printer& printer, const Vesk_message& m, char* buf, int size) {
    return printer.snprint(Message(m.get_ptr(), m.get_size()), buf, size);
}

/// The function that prints the frames of one identifier.
struct Route {
    int id;
    int (*print)(const Vesk_printer& printer, const Vesk_message& m, char* buf, int size);
};

template <typename Message>
constexpr Route route{Message::id, print_as<Message>};

constexpr Route text_route(char first, char second) {
    return {Vesk_message::msg_id(first, second), print_text};
}

// clang-format off
constexpr Route routes[] = {
    route<Msg_PG>, route<Msg_RT>, route<Msg_RD>, route<Msg_GT>, route<Msg_NT>, route<Msg_SG>, route<Msg_PS>, route<Msg_PV>,
    route<Msg_DP>, route<Msg_ST>, route<Msg_EE>, route<Msg_GA>, route<Msg_NA>,
    route<Msg_SI>, route<Msg_NN>, route<Msg_SS>, route<Msg_TC>, route<Msg_EL>, route<Msg_AZ>, route<Msg_EC>, route<Msg_E1>,
    route<Msg_E2>,
    text_route('R', 'E'), text_route('E', 'R'), text_route('D', 'L'), text_route('N', 'P'),
};
// clang-format on

} // namespace

int Vesk_printer::snprint(const Vesk_message& m, char* buf, int size) const {
    const int id = m.get_uint8(0) | m.get_uint8(1) << 8;
    for (const Route& candidate : routes)
        if (candidate.id == id)
            return candidate.print(*this, m, buf, size);
    return print_unknown(m, buf, size);
}

// ---- Messages ----

// On purpose some lines begin with blanks, and "ecc" has no "=": programs that read logs expect it.

int Vesk_printer::snprint(const Msg_PG& m, char* buf, int size) const {
    return print_line(buf, size,
                      verbose_ ? "    PG lat=%.10f lon=%.10f hgt=%.3fm sigma=%.2f type=%d"
                               : "    PG,%.10f,%.10f,%.3f,%.2f,%d",
                      m.get_lat_deg(), m.get_lon_deg(), m.get_hgt(), m.get_sigma(), m.get_type());
}

int Vesk_printer::snprint(const Msg_RT& m, char* buf, int size) const {
    return print_line(buf, size, verbose_ ? "RT ms=%u" : "RT,%u", m.get_ms());
}

int Vesk_printer::snprint(const Msg_RD& m, char* buf, int size) const {
    return print_line(buf, size, verbose_ ? "RD date=%02d/%02d/%02d base=%d" : "RD,%02d/%02d/%02d,%d", m.get_day(),
                      m.get_month(), m.get_year(), m.get_base());
}

int Vesk_printer::snprint(const Msg_GT& m, char* buf, int size) const {
    return print_line(buf, size, verbose_ ? "    GT ms=%d week=%d" : "    GT,%d,%d", as_signed(m.get_ms()),
                      m.get_week());
}

int Vesk_printer::snprint(const Msg_NT& m, char* buf, int size) const {
    return print_line(buf, size, verbose_ ? "    NT ms=%d day=%d" : "    NT,%d,%d", as_signed(m.get_ms()), m.get_day());
}

int Vesk_printer::snprint(const Msg_SG& m, char* buf, int size) const {
    return print_line(buf, size,
                      verbose_ ? "    SG hpos=%.2f vpos=%.2f hvel=%.2f vvel=%.2f type=%d"
                               : "    SG,%.2f,%.2f,%.2f,%.2f,%d",
                      m.get_hpos(), m.get_vpos(), m.get_hvel(), m.get_vvel(), m.get_type());
}

int Vesk_printer::snprint(const Msg_PS& m, char* buf, int size) const {
    return print_line(buf, size,
                      verbose_ ? "    PS type=%d locked={%d,%d} avail={%d,%d} used={%d,%d} fix=%d"
                               : "    PS,%d,{%d,%d},{%d,%d},{%d,%d},%d",
                      m.get_type(), m.get_locked(0), m.get_locked(1), m.get_avail(0), m.get_avail(1), m.get_used(0),
                      m.get_used(1), m.get_fix());
}

int Vesk_printer::snprint(const Msg_PV& m, char* buf, int size) const {
    return print_line(buf, size,
                      verbose_ ? "    PV pos={%.3f,%.3f,%.3f} psigma=%.3f vel={%.3f,%.3f,%.3f} vsigma=%.3f type=%d"
                               : "    PV,{%.3f,%.3f,%.3f},%.3f,{%.3f,%.3f,%.3f},%.3f,%d",
                      m.get_x(), m.get_y(), m.get_z(), m.get_psigma(), m.get_vx(), m.get_vy(), m.get_vz(),
                      m.get_vsigma(), m.get_type());
}

int Vesk_printer::snprint(const Msg_DP& m, char* buf, int size) const {
    return print_line(buf, size,
                      verbose_ ? "    DP hdop=%.2f vdop=%.2f tdop=%.2f gdop=%.2f pdop=%.2f type=%d"
                               : "    DP,%.2f,%.2f,%.2f,%.2f,%.2f,%d",
                      m.get_hdop(), m.get_vdop(), m.get_tdop(), m.get_gdop(), m.get_pdop(), m.get_type());
}

int Vesk_printer::snprint(const Msg_ST& m, char* buf, int size) const {
    return print_line(buf, size, verbose_ ? "ST ms=%d type=%d" : "ST,%d,%d", as_signed(m.get_ms()), m.get_type());
}

int Vesk_printer::snprint(const Msg_EE&, char* buf, int size) const {
    return print_line(buf, size, "EE");
}

int Vesk_printer::snprint(const Msg_GA& m, char* buf, int size) const {
    return print_line(buf, size,
                      verbose_ ? "GA sv=%d week=%d ms=%d healthA=%x healthS=%x config=%x af1=%.3e af0=%.3e rootA=%.3e "
                                 "ecc=%.3e m0=%.3e omega0=%.3e argPer=%.3e deli=%.3e omegaDot=%.3e"
                               : "GA,%d,%d,%d,%x,%x,%x,%.3e,%.3e,%.3e,%.3e,%.3e,%.3e,%.3e,%.3e,%.3e",
                      m.get_sv(), m.get_week(), m.get_ms(), m.get_health_a(), m.get_health_s(), m.get_config(),
                      m.get_af1(), m.get_af0(), m.get_root_a(), m.get_ecc(), m.get_m0(), m.get_omega0(),
                      m.get_arg_per(), m.get_deli(), m.get_omega_dot());
}

int Vesk_printer::snprint(const Msg_NA& m, char* buf, int size) const {
    return print_line(
        buf, size,
        verbose_ ? "NA sv=%d freq=%d day=%d time=%.3f health=%x tauN=%.3e tauSys=%.3e ecc%.3e lambda=%.3e "
                   "argPer=%.3e delT=%.3e delTdt=%.3e deli=%.3e"
                 : "NA,%d,%d,%d,%.3f,%x,%.3e,%.3e,%.3e,%.3e,%.3e,%.3e,%.3e,%.3e",
        m.get_sv(), m.get_freq(), m.get_day(), m.get_time(), m.get_health(), m.get_tau_n(), m.get_tau_sys(),
        m.get_ecc(), m.get_lambda(), m.get_arg_per(), m.get_del_t(), m.get_del_t_dt(), m.get_deli());
}

int Vesk_printer::snprint(const Msg_SI& m, char* buf, int size) const {
    return print_list(m, verbose_, buf, size);
}

int Vesk_printer::snprint(const Msg_NN& m, char* buf, int size) const {
    return print_list(m, verbose_, buf, size);
}

int Vesk_printer::snprint(const Msg_SS& m, char* buf, int size) const {
    return print_list(m, verbose_, buf, size);
}

int Vesk_printer::snprint(const Msg_TC& m, char* buf, int size) const {
    return print_list(m, verbose_, buf, size);
}

int Vesk_printer::snprint(const Msg_EL& m, char* buf, int size) const {
    return print_list(m, verbose_, buf, size);
}

int Vesk_printer::snprint(const Msg_AZ& m, char* buf, int size) const {
    return print_list(m, verbose_, buf, size, Msg_AZ::unit);
}

int Vesk_printer::snprint(const Msg_EC& m, char* buf, int size) const {
    return print_list(m, verbose_, buf, size);
}

int Vesk_printer::snprint(const Msg_E1& m, char* buf, int size) const {
    return print_list(m, verbose_, buf, size);
}

int Vesk_printer::snprint(const Msg_E2& m, char* buf, int size) const {
    return print_list(m, verbose_, buf, size);
}
