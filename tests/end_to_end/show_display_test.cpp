// The example for messages to a display.

#include <support/builders/Frame_builder.h>
#include <support/processes/Program.h>

#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace {

std::string frame_of(const std::vector<std::string>& items) {
    std::string body(5, '\0');
    body += static_cast<char>(items.size());
    for (const std::string& item : items)
        body += item;
    return build_frame("ES", body);
}

} // namespace

TEST(Show_display, names_every_received_mode) {
    std::string damaged = frame_of({le(1), le(0), le(0.0F), le(0.0F)});
    damaged[12] = static_cast<char>(damaged[12] ^ 1);
    const std::string traffic = frame_of({le(1), le(-1), le(0.125F), le(2.5F)}) + build_frame("GS", "whatever") +
                                damaged + frame_of({le(6), le(1), le(-1.0F), le(0.0F), le(2), le(3)}) +
                                frame_of({le(1000), le(-2), le(0.0F), le(0.0F), le(-1), le(-2147483647 - 1)});
    const auto result = Program(SHOW_DISPLAY, {}).input(traffic).run();
    EXPECT_EQ(result.status, 0) << result.errors;
    EXPECT_EQ(result.output, "Closed Loop, implement Rear, curvature 0.1250, 2.50 m/s\n"
                             "Override Disabled, implement Front, curvature -1.0000, 0.00 m/s, calibration Compass, "
                             "modem Int Off/Ext 500\n"
                             "Unknown control_mode_t, implement Unknown mc_implement_t, curvature 0.0000, 0.00 m/s, "
                             "calibration Unknown calibration_mode_t, modem Unknown modem_power_t\n");
}
