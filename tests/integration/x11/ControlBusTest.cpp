#include <QCoreApplication>
#include <future>
#include <sstream>

#include <gtest/gtest.h>

#include "X11TestSession.h"
#include "platform/x11/QtDBusControlBus.h"
#include "support/TempDir.h"

namespace vocle {
namespace {

using namespace std::chrono_literals;
using testing::Spawned;
using testing::TempDir;
using testing::TestSessionBus;

QCoreApplication& qtApplication() {
    static int argc = 1;
    static char name[] = "control-bus-test";
    static char* argv[] = {name, nullptr};
    static QCoreApplication app(argc, argv);
    return app;
}

struct CliRun {
    std::optional<int> status;
    std::string output;
};

class ControlBusTest : public ::testing::Test {
  protected:
    void SetUp() override {
        VOCLE_REQUIRE_PROGRAMS("dbus-daemon");
        qtApplication();
        bus = std::make_unique<TestSessionBus>(dir.path());
    }

    // Runs vocle-cli while Qt's loop keeps answering the bus.
    CliRun cli(const std::string& command, std::map<std::string, std::string> env = {}) {
        env.emplace("DBUS_SESSION_BUS_ADDRESS", bus->address());
        const auto output = dir / ("cli-" + std::to_string(++runs) + ".txt");
        std::vector<std::string> argv{std::string(VOCLE_BINARY_DIR) + "/tools/vocle-cli/vocle-cli"};
        std::istringstream words(command);
        for (std::string word; words >> word;) argv.push_back(word);
        Spawned process(argv, env, output);
        CliRun run;
        testing::pollUntil(
            [&] {
                QCoreApplication::processEvents(QEventLoop::AllEvents, 10);
                return !process.running();
            },
            15s, 1ms);
        run.status = process.waitForExit(0ms);
        run.output = testing::readAll(output);
        return run;
    }

    // Lets queued handlers run.
    void pump(const std::function<bool()>& until) {
        testing::pollUntil(
            [&] {
                QCoreApplication::processEvents(QEventLoop::AllEvents, 10);
                return until();
            },
            5s, 1ms);
    }

    // libdbus reads the session bus address once per process, so each test names its own bus.
    std::string address() const { return bus->address(); }

    TempDir dir;
    std::unique_ptr<TestSessionBus> bus;
    int runs = 0;
};

TEST_F(ControlBusTest, CliReachesThePublishedInstance) {
    int toggles = 0, cancels = 0, activations = 0;
    std::string state = kControlStateIdle;
    QtDBusControlBus control(address());
    ASSERT_EQ(control.publish({[&] { ++toggles; }, [&] { ++cancels; }, [&] { ++activations; },
                               [&] { return state; }}),
              ControlBus::PublishResult::published);

    auto run = cli("status");
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.output, "idle\n");

    run = cli("toggle");
    EXPECT_EQ(run.status, 0) << run.output;
    pump([&] { return toggles == 1; });
    EXPECT_EQ(toggles, 1);
    EXPECT_EQ(cancels, 0);

    state = kControlStateRecording;
    run = cli("status");
    EXPECT_EQ(run.output, "recording\n");

    run = cli("cancel");
    EXPECT_EQ(run.status, 0) << run.output;
    pump([&] { return cancels == 1; });
    EXPECT_EQ(cancels, 1);
    EXPECT_EQ(toggles, 1);
    EXPECT_EQ(activations, 0);

    // Unknown arguments are refused before anything is sent.
    run = cli("toggle --now");
    EXPECT_EQ(run.status, 2);
    EXPECT_EQ(run.output, "vocle-cli toggle: unexpected argument \"--now\"\n");
    EXPECT_EQ(toggles, 1);
}

TEST_F(ControlBusTest, ASecondInstanceFindsTheNameTakenAndHandsOver) {
    int activations = 0;
    QtDBusControlBus first(address());
    ASSERT_EQ(first.publish({{}, {}, [&] { ++activations; }, [] { return std::string(kControlStateProcessing); }}),
              ControlBus::PublishResult::published);

    QtDBusControlBus second(address());
    EXPECT_EQ(second.publish({[] { FAIL() << "the second instance must not be called"; }, {}, {}, {}}),
              ControlBus::PublishResult::alreadyRunning);
    // The call blocks its thread; the first instance answers on this one.
    auto activate = std::async(std::launch::async, [&] { return second.callRunningInstance(ControlMethod::activate); });
    auto state = std::async(std::launch::async, [&] { return second.callRunningInstance(ControlMethod::state); });
    pump([&] {
        return activate.wait_for(0s) == std::future_status::ready && state.wait_for(0s) == std::future_status::ready;
    });
    ASSERT_EQ(activate.wait_for(0s), std::future_status::ready);
    EXPECT_TRUE(activate.get().ok());
    const auto answer = state.get();
    EXPECT_TRUE(answer.ok()) << answer.message;
    EXPECT_EQ(answer.value, "processing");
    pump([&] { return activations == 1; });
    EXPECT_EQ(activations, 1);
}

TEST_F(ControlBusTest, WithoutARunningInstanceCallsFailClearly) {
    {
        QtDBusControlBus gone(address());
        ASSERT_EQ(gone.publish({}), ControlBus::PublishResult::published);
    }
    // The name went with its owner.
    for (const char* command : {"toggle", "cancel", "status"}) {
        const auto run = cli(command);
        EXPECT_EQ(run.status, 1) << command;
        EXPECT_EQ(run.output, std::string("vocle-cli ") + command + ": No running Vocle on the session bus\n");
    }
    QtDBusControlBus client(address());
    const auto result = client.callRunningInstance(ControlMethod::toggle);
    EXPECT_EQ(result.outcome, ControlCallResult::Outcome::noInstance) << result.message;
}

TEST_F(ControlBusTest, WithoutASessionBusNothingHangs) {
    const std::string nowhere = "unix:path=" + (dir / "no-bus-here").string();
    const auto run = cli("toggle", {{"DBUS_SESSION_BUS_ADDRESS", nowhere}});
    EXPECT_EQ(run.status, 1);
    EXPECT_NE(run.output.find("vocle-cli toggle: no session bus"), std::string::npos) << run.output;

    QtDBusControlBus control(nowhere);
    EXPECT_EQ(control.publish({}), ControlBus::PublishResult::unavailable);
    EXPECT_EQ(control.callRunningInstance(ControlMethod::activate).outcome, ControlCallResult::Outcome::noBus);
}

}  // namespace
}  // namespace vocle
