#include "plots.h"

namespace live_view {

namespace {

/// A count in six characters.
std::string short_count(std::uint64_t count) {
    constexpr std::uint64_t most = 999999;
    if (count <= most)
        return formatted("%6u", static_cast<unsigned>(count));
    return formatted("%5.1f%c", static_cast<double>(count) / (count < 1000000000 ? 1e6 : 1e9),
                     count < 1000000000 ? 'M' : 'G');
}

/// A rate in five characters.
std::string short_rate(std::optional<double> rate) {
    if (!rate)
        return "    -";
    return *rate < 999.95 ? formatted("%5.1f", *rate) : formatted("%5.0f", *rate);
}

/// Moves the pen to the nth entry of a table with two columns.
void go_to(Pen& pen, Area area, int index, int entry_columns) {
    pen.at(area.row + index % area.rows, area.column + index / area.rows * entry_columns);
}

/// How many entries to show. When not all fit, the last place is for the number of the others.
int shown(int entries, Area area) {
    return entries <= 2 * area.rows ? entries : 2 * area.rows - 1;
}

} // namespace

void draw_messages(Pen& pen, Area area, const Link_model& model, Atime now) {
    constexpr int entry_columns = message_table_columns / 2 + 1;
    const auto& messages = model.messages();
    const int count = static_cast<int>(messages.size());
    const int last = shown(model.other_messages() > 0 ? 2 * area.rows + 1 : count, area);
    for (int i = 0; i < last && i < count; ++i) {
        const Link_model::Message& message = messages[static_cast<std::size_t>(i)];
        const char identifier[] = {static_cast<char>(message.identifier & 0xFF),
                                   static_cast<char>(message.identifier >> 8)};
        go_to(pen, area, i, entry_columns);
        pen.text({identifier, 2}).text(" ").value(short_count(message.count));
        pen.value(short_rate(message.rate.per_second(now)));
    }
    if (last < count || model.other_messages() > 0) {
        go_to(pen, area, std::min(last, count), entry_columns);
        pen.text(model.other_messages() > 0 ? "and others" : formatted("and %d more", count - last));
    }
}

void draw_satellites(Pen& pen, Area area, const std::vector<Satellite>& satellites) {
    constexpr int entry_columns = satellite_table_columns / 2 + 1;
    const int count = static_cast<int>(satellites.size());
    const int last = shown(count, area);
    for (int i = 0; i < last; ++i) {
        const Satellite& satellite = satellites[static_cast<std::size_t>(i)];
        go_to(pen, area, i, entry_columns);
        pen.text(formatted("%2d", satellite.number))
            .value(formatted(" %2d %3d", satellite.elevation, satellite.azimuth));
        pen.value(satellite.strength ? formatted(" %2d", *satellite.strength) : "  -");
        pen.text(satellite.use.value_or(0) == 0 ? "" : "-");
    }
    if (last < count) {
        go_to(pen, area, last, entry_columns);
        pen.text(formatted("and %d more", count - last));
    }
}

} // namespace live_view
