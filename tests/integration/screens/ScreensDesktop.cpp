#include "integration/screens/ScreensDesktop.h"

#include <QApplication>
#include <QElapsedTimer>
#include <QThread>
#include <QWidget>

#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <stdexcept>
#include <thread>

namespace vocle::testing {

namespace {

pid_t spawn(const std::vector<std::string>& argv, int keepFd = -1) {
    pid_t pid = fork();
    if (pid < 0) throw std::runtime_error("fork failed");
    if (pid == 0) {
        // A test that crashes must not leave its X server behind.
        prctl(PR_SET_PDEATHSIG, SIGTERM);
        int null = open("/dev/null", O_RDWR);
        dup2(null, STDIN_FILENO);
        dup2(null, STDOUT_FILENO);
        dup2(null, STDERR_FILENO);
        for (int fd = 3; fd < 256; ++fd)
            if (fd != keepFd) close(fd);
        std::vector<char*> args;
        for (const auto& a : argv) args.push_back(const_cast<char*>(a.c_str()));
        args.push_back(nullptr);
        execvp(args[0], args.data());
        _exit(127);
    }
    return pid;
}

void stopChild(pid_t pid) {
    if (pid <= 0) return;
    kill(pid, SIGTERM);
    for (int i = 0; i < 100; ++i) {
        if (waitpid(pid, nullptr, WNOHANG) == pid) return;
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    kill(pid, SIGKILL);
    waitpid(pid, nullptr, 0);
}

}  // namespace

ScreensDesktop& ScreensDesktop::shared() {
    static ScreensDesktop desktop;
    return desktop;
}

ScreensDesktop::ScreensDesktop() {
    int fds[2];
    if (pipe(fds) != 0) throw std::runtime_error("pipe failed");
    // The screen is the main window's size, so a root screenshot shows exactly the harness window.
    xvfb_ = spawn({"Xvfb", "-displayfd", std::to_string(fds[1]), "-screen", "0", "650x600x24", "-nolisten", "tcp"},
                  fds[1]);
    close(fds[1]);
    std::string number;
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(15);
    fcntl(fds[0], F_SETFL, O_NONBLOCK);
    while (std::chrono::steady_clock::now() < deadline) {
        char c;
        ssize_t n = read(fds[0], &c, 1);
        if (n == 1) {
            if (c == '\n') break;
            number += c;
        } else if (n == 0) {
            break;
        } else {
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
    }
    close(fds[0]);
    if (number.empty()) {
        stopChild(xvfb_);
        throw std::runtime_error("Xvfb did not report a display within 15 s");
    }
    display_ = ":" + number;
    setenv("DISPLAY", display_.c_str(), 1);
    setenv("QT_QPA_PLATFORM", "xcb", 1);
    openbox_ = spawn({"openbox"});
    waitForWindowManager();
}

ScreensDesktop::~ScreensDesktop() {
    // The application is left to the process exit: destroyed from an exit handler, after Qt's own
    // statics, it crashes. Closing the display connection first keeps the server shutdown clean.
    if (app_) QApplication::closeAllWindows();
    stopChild(openbox_);
    stopChild(xvfb_);
}

void ScreensDesktop::waitForWindowManager() {
    const std::string probe =
        "xprop -display " + display_ + " -root _NET_SUPPORTING_WM_CHECK 2>/dev/null | grep -q 'window id'";
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    int starts = 1;
    while (std::chrono::steady_clock::now() < deadline) {
        if (std::system(probe.c_str()) == 0) return;
        // On a loaded machine openbox sometimes gives up while the server is still settling; start it again.
        if (waitpid(openbox_, nullptr, WNOHANG) == openbox_ && starts < 3) {
            openbox_ = spawn({"openbox"});
            ++starts;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    throw std::runtime_error("openbox did not come up on " + display_ + " within 20 s (" + std::to_string(starts) +
                             " starts)");
}

QApplication& ScreensDesktop::app() {
    if (!app_) {
        static int argc = 1;
        static char name[] = "vocle-screens-test";
        static char* argv[] = {name, nullptr};
        app_ = new QApplication(argc, argv);
    }
    return *app_;
}

bool ScreensDesktop::pumpUntil(const std::function<bool()>& done, double timeout) {
    QElapsedTimer timer;
    timer.start();
    while (!done()) {
        if (timer.elapsed() > timeout * 1000) return false;
        QApplication::processEvents(QEventLoop::AllEvents, 20);
        QThread::msleep(5);
    }
    return true;
}

void ScreensDesktop::pump(double seconds) {
    pumpUntil([] { return false; }, seconds);
}

int ScreensDesktop::run(const std::string& command) {
    const std::string full = "DISPLAY=" + display_ + " " + command;
    return std::system(full.c_str());
}

std::filesystem::path ScreensDesktop::screenshot(const std::string& name) {
    const std::filesystem::path dir = std::filesystem::path(VOCLE_BINARY_DIR) / "screenshots";
    std::filesystem::create_directories(dir);
    const auto file = dir / (name + ".png");
    pump(0.25);
    run("import -window root " + file.string());
    return file;
}

bool ScreensDesktop::activate(QWidget& window) {
    window.raise();
    window.activateWindow();
    const auto id = std::to_string(window.winId());
    run("xdotool windowactivate --sync " + id + " >/dev/null 2>&1");
    return pumpUntil([&] { return window.isActiveWindow(); }, 5);
}

}  // namespace vocle::testing
