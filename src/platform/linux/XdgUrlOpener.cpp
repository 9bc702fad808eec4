#include "platform/linux/XdgUrlOpener.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>

#include <cstring>
#include <thread>
#include <vector>

#include "foundation/Log.h"

extern char** environ;

namespace vocle {

void XdgUrlOpener::openURL(const std::string& url, std::function<void(const std::string&)> onFailure) {
    auto fail = [this, onFailure](std::string message) {
        if (onFailure) mainQueue_.post([onFailure, message] { onFailure(message); });
    };
    // xdg-open takes no "--": an argument starting with '-' would be read as an option.
    if (url.empty() || url.front() == '-' || url.find('\n') != std::string::npos) {
        log("❌ XdgUrlOpener: Refusing to open \"", url, "\"");
        return fail("This link cannot be opened: \"" + url + "\".");
    }
    if (auto panel = panels_.choose(url)) {
        if (panel->command.empty()) {
            log("XdgUrlOpener: No settings panel on this desktop for ", url);
            return fail(panel->help);
        }
        return run(panel->command, url, panel->help, onFailure);
    }
    run({program_, url}, url, {}, onFailure);
}

void XdgUrlOpener::run(std::vector<std::string> args, const std::string& url, std::string help,
                       std::function<void(const std::string&)> onFailure) {
    std::vector<char*> argv;
    for (auto& a : args) argv.push_back(a.data());
    argv.push_back(nullptr);
    const std::string program = args.front();
    auto fail = [this, onFailure, help, program](const std::string& what) {
        if (!onFailure) return;
        std::string message = "Could not open " + program + " (" + what + ").";
        if (!help.empty()) message += " " + help;
        mainQueue_.post([onFailure, message] { onFailure(message); });
    };
    pid_t pid = -1;
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
    const int rc = posix_spawnp(&pid, program.c_str(), &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    if (rc != 0) {
        log("❌ XdgUrlOpener: Could not start ", program, " for ", url, ": ", std::strerror(rc));
        return fail(std::strerror(rc));
    }
    std::thread([pid, url, program, fail] {
        int status = 0;
        while (waitpid(pid, &status, 0) < 0) {
            if (errno != EINTR) return;
        }
        if (WIFEXITED(status) && WEXITSTATUS(status) == 0) return;
        if (WIFEXITED(status)) {
            log("❌ XdgUrlOpener: ", program, " could not open ", url, " (exit status ", WEXITSTATUS(status), ")");
            fail("exit status " + std::to_string(WEXITSTATUS(status)));
        } else {
            log("❌ XdgUrlOpener: ", program, " ended by signal ", WTERMSIG(status), " opening ", url);
            fail("ended by signal " + std::to_string(WTERMSIG(status)));
        }
    }).detach();
}

}  // namespace vocle
