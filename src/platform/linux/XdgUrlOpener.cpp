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

void XdgUrlOpener::openURL(const std::string& url) {
    // xdg-open takes no "--": an argument starting with '-' would be read as an option.
    if (url.empty() || url.front() == '-' || url.find('\n') != std::string::npos) {
        log("❌ XdgUrlOpener: Refusing to open \"", url, "\"");
        return;
    }
    std::string program = program_;
    std::string argument = url;
    char* argv[] = {program.data(), argument.data(), nullptr};
    pid_t pid = -1;
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
    const int rc = posix_spawnp(&pid, program.c_str(), &actions, nullptr, argv, environ);
    posix_spawn_file_actions_destroy(&actions);
    if (rc != 0) {
        log("❌ XdgUrlOpener: Could not start ", program_, " for ", url, ": ", std::strerror(rc));
        return;
    }
    std::thread([pid, url, program = program_] {
        int status = 0;
        while (waitpid(pid, &status, 0) < 0) {
            if (errno != EINTR) return;
        }
        if (WIFEXITED(status) && WEXITSTATUS(status) == 0) return;
        if (WIFEXITED(status)) {
            log("❌ XdgUrlOpener: ", program, " could not open ", url, " (exit status ", WEXITSTATUS(status), ")");
        } else {
            log("❌ XdgUrlOpener: ", program, " ended by signal ", WTERMSIG(status), " opening ", url);
        }
    }).detach();
}

}  // namespace vocle
