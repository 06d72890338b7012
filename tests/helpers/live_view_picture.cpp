// Draws a picture of the monitor's live view: runs the program in a terminal of its own and writes the screen as SVG.
// usage: live_view_picture MONITOR SIMULATOR COLUMNSxROWS SECONDS >picture.svg

#include <support/terminals/Terminal_session.h>

#include <cstdio>
#include <cstdlib>
#include <string>

namespace {

constexpr double cell_width = 8.4;
constexpr int cell_height = 18;
constexpr int margin = 10;
constexpr unsigned background = 0x10151c;
constexpr unsigned ordinary = 0xc9d1d9;
constexpr unsigned emphasised = 0xffffff;

using Look = Terminal_session::Look;

unsigned ink(const Look& look) {
    if (look.reverse)
        return background;
    return look.coloured ? look.foreground : look.bold ? emphasised : ordinary;
}

bool alike(const Look& a, const Look& b) {
    return a.bold == b.bold && a.reverse == b.reverse && ink(a) == ink(b);
}

std::string escaped(char c) {
    switch (c) {
    case '&':
        return "&amp;";
    case '<':
        return "&lt;";
    case '>':
        return "&gt;";
    default:
        return std::string(1, c);
    }
}

/// Draws characters of one row that have the same look.
void draw_run(const Terminal_session& session, int row, int first, int end) {
    const Look look = session.look(row, first);
    std::string text;
    bool blank = true;
    for (int column = first; column < end; ++column) {
        const char c = session.look(row, column).character;
        text += escaped(c);
        blank = blank && c == ' ';
    }
    const double x = margin + first * cell_width;
    const double width = (end - first) * cell_width;
    const int top = margin + row * cell_height;
    if (look.reverse)
        std::printf("<rect x=\"%.1f\" y=\"%d\" width=\"%.1f\" height=\"%d\" fill=\"#%06x\"/>\n", x, top, width,
                    cell_height, ordinary);
    if (!blank)
        std::printf("<text x=\"%.1f\" y=\"%d\" textLength=\"%.1f\" fill=\"#%06x\"%s>%s</text>\n", x,
                    top + cell_height - 5, width, ink(look), look.bold ? " font-weight=\"bold\"" : "", text.c_str());
}

void draw_row(const Terminal_session& session, int row) {
    const int columns = session.size().columns;
    for (int first = 0; first < columns;) {
        int end = first + 1;
        while (end < columns && alike(session.look(row, first), session.look(row, end)))
            ++end;
        draw_run(session, row, first, end);
        first = end;
    }
}

void draw(const Terminal_session& session) {
    const double width = session.size().columns * cell_width + 2 * margin;
    const int height = session.size().rows * cell_height + 2 * margin;
    std::printf("<svg xmlns=\"http://www.w3.org/2000/svg\" viewBox=\"0 0 %.0f %d\" font-family=\"monospace\" "
                "font-size=\"14\" xml:space=\"preserve\">\n",
                width, height);
    std::printf("<title>receiver_monitor --view</title>\n");
    std::printf("<rect width=\"100%%\" height=\"100%%\" rx=\"6\" fill=\"#%06x\"/>\n", background);
    for (int row = 0; row < session.size().rows; ++row)
        draw_row(session, row);
    std::printf("</svg>\n");
}

} // namespace

int main(int argc, char** argv) {
    Terminal_session::Size size{};
    if (argc != 5 || std::sscanf(argv[3], "%dx%d", &size.columns, &size.rows) != 2) {
        std::fprintf(stderr, "usage: live_view_picture MONITOR SIMULATOR COLUMNSxROWS SECONDS >picture.svg\n");
        return 1;
    }
    const std::string simulator = "exec:" + std::string(argv[2]) + " --automation --nmea";
    Terminal_session session(argv[1], {simulator, "--view"}, size);
    if (!session.shows("receiving good frames")) {
        std::fprintf(stderr, "live_view_picture: the view shows no good frames:\n%s", session.screen().c_str());
        return 1;
    }
    session.watch(std::chrono::seconds(std::atoi(argv[4])));
    draw(session);
    session.press("q");
    return session.status_at_end() == 0 ? 0 : 1;
}
