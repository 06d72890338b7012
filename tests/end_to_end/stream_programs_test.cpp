// The programs with streams of every kind, and socat at the other end.

#include <support/processes/Program.h>
#include <support/streams/TCP_socket.h>
#include <support/terminals/Pty_pair.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <thread>

namespace {

using testing::HasSubstr;

struct Stream_programs : testing::Test {
    void SetUp() override { setenv("GLUE_TCP_BIND", "127.0.0.1", 1); }
};

const std::string simulator = RECEIVER_SIMULATOR;

TEST_F(Stream_programs, monitor_reads_a_simulator_that_is_its_child) {
    const auto result = Program(RECEIVER_MONITOR, {"exec:" + simulator + " --epochs 20 --rate 0 --seed 3"}).run();
    const auto piped = Program("sh", {"-c", simulator + " --epochs 20 --rate 0 --seed 3 | " + RECEIVER_MONITOR}).run();
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.output, piped.output);
    EXPECT_THAT(result.errors, HasSubstr(" + noise 0 + separators 0\nchecksum failures: 0\n"));
}

TEST_F(Stream_programs, monitor_reads_a_peer_over_tcp_in_both_roles) {
    const TCP_port port;
    const std::string number = std::to_string(port.number());
    const std::string serve = "socat EXEC:'" + simulator + " --epochs 20 --rate 0 --seed 3' TCP-LISTEN:" + number +
                              ",bind=127.0.0.1,reuseaddr & ";
    const auto client =
        Program("sh", {"-c", serve + RECEIVER_MONITOR + " tcpc:port=" + number + " --count 410 --duration 20; kill %1"})
            .run();
    EXPECT_EQ(client.status == 0 || client.status == 1, true) << client.errors; // the status of kill
    EXPECT_THAT(client.errors, HasSubstr(" + noise 0 + separators 0\nchecksum failures: 0\n"));
    EXPECT_THAT(client.errors, HasSubstr("PG         20"));
}

TEST_F(Stream_programs, monitor_sends_a_command_first) {
    const Pty_pair line;
    std::string seen;
    std::thread receiver([&] {
        seen = line.receive(5);
        line.send("RE006%1%ok\r\n");
    });
    const auto result = Program(RECEIVER_MONITOR, {line.path(), "--send", "VER", "--duration", "1"}).run();
    receiver.join();
    EXPECT_EQ(seen, "VER\r\n");
    EXPECT_EQ(result.status, 2); // no frame was received
}

TEST_F(Stream_programs, monitor_traces_on_request) {
    const auto result =
        Program(RECEIVER_MONITOR, {"tcpc:port=1", "--send", "VER", "--trace", "--duration", "0.1"}).run();
    EXPECT_EQ(result.status, 2);
    const Pty_pair line;
    const auto traced = Program(RECEIVER_MONITOR, {line.path(), "--send", "VER", "--trace", "--duration", "0.1"}).run();
    EXPECT_THAT(traced.errors, HasSubstr("[WR](5): VER\\r\\n\n"));
    const std::string served = "exec:" + simulator + " --stream cons: --epochs 10";
    const auto child = Program(RECEIVER_MONITOR, {served, "--send", "version", "--trace", "--quiet"}).run();
    EXPECT_THAT(child.errors, HasSubstr("[WR](9/9): version\\r\\n\n"));
    EXPECT_THAT(child.errors, HasSubstr("{receiver_simulator}\\r\\n"));
}

} // namespace
