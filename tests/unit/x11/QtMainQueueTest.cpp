#include <QCoreApplication>
#include <QElapsedTimer>

#include <memory>

#include "platform/x11/QtMainQueue.h"
#include "support/MainQueueConformance.h"

namespace vocle::testing {
namespace {

// One Qt application object per process; other tests in this executable may share it.
QCoreApplication& qtApplication() {
    if (!QCoreApplication::instance()) {
        static int argc = 1;
        static char name[] = "unit_x11_tests";
        static char* argv[] = {name, nullptr};
        static QCoreApplication app(argc, argv);
    }
    return *QCoreApplication::instance();
}

struct QtHarness {
    QtHarness() { qtApplication(); }
    SystemClock clock;
    QtMainQueue q{clock};
    MainQueue& queue() { return q; }
    double now() { return clock.monotonicNow().time_since_epoch().count(); }
    // Spins Qt's own event loop, as the application does.
    bool runUntil(const std::function<bool()>& done, double seconds) {
        QElapsedTimer elapsed;
        elapsed.start();
        while (!done()) {
            if (elapsed.elapsed() > seconds * 1000) return done();
            QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents, 5);
        }
        return true;
    }
};

using Harnesses = ::testing::Types<QtHarness>;
INSTANTIATE_TYPED_TEST_SUITE_P(Qt, MainQueueConformance, Harnesses);

TEST(QtMainQueue, AQueueDestroyedWithWorkPendingDropsItSafely) {
    qtApplication();
    SystemClock clock;
    int ran = 0;
    {
        auto q = std::make_unique<QtMainQueue>(clock);
        q->post([&] { ++ran; });
        q->postAfter(Seconds(0.01), [&] { ++ran; });
    }
    QElapsedTimer elapsed;
    elapsed.start();
    while (elapsed.elapsed() < 50) QCoreApplication::processEvents(QEventLoop::AllEvents, 5);
    EXPECT_EQ(ran, 0);
}

}  // namespace
}  // namespace vocle::testing
