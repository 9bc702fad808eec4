#include <signal.h>

#include <cstdio>
#include <iostream>
#include <thread>

#include "app/ServerApp.h"
#include "config/ServerConfig.h"
#include "foundation/Clock.h"
#include "foundation/Environment.h"
#include "foundation/Log.h"

int main(int argc, char** argv) {
    using namespace vocle;
    using namespace vocle::server;
    std::vector<std::string> args(argv + 1, argv + argc);
    CommandLine commandLine;
    try {
        commandLine = parseCommandLine(args, ProcessEnvironment());
    } catch (const ConfigError& e) {
        std::cerr << "vocle-server: " << e.what() << "\n";
        return 2;
    }
    if (commandLine.showHelp) {
        std::cout << usageText();
        return 0;
    }

    // SIGINT/SIGTERM are taken by a waiting thread so that shutdown runs as ordinary code.
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    signal(SIGPIPE, SIG_IGN);

    SystemClock clock;
    try {
        ServerApp app(commandLine.config, clock);
        std::thread waiter([&] {
            int received = 0;
            sigwait(&signals, &received);
            log("vocle-server: stopping");
            app.stop();
        });
        waiter.detach();
        app.run();
    } catch (const std::exception& e) {
        std::cerr << "vocle-server: " << e.what() << "\n";
        return 1;
    }
    return 0;
}
