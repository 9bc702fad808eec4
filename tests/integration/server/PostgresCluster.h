#pragma once

#include <fcntl.h>
#include <libpq-fe.h>
#include <pwd.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <mutex>
#include <stdexcept>
#include <string>
#include <vector>

extern char** environ;

namespace vocle::testing {

// A private PostgreSQL server for one test binary, from Debian's packages: initdb and pg_ctl in a
// temporary folder, reachable only through a unix socket in that folder. initdb refuses to run as root,
// so under root the cluster belongs to the "postgres" system user. Started on first use, stopped (and
// its folder removed) when the binary exits.
class PostgresCluster {
  public:
    static PostgresCluster& instance() {
        static PostgresCluster cluster;
        return cluster;
    }

    // A fresh, empty database; returns its libpq connection string.
    std::string createDatabase() {
        std::lock_guard lock(mutex_);
        const std::string name = "vocle_test_" + std::to_string(++databases_);
        PGconn* admin = PQconnectdb(connectionString("postgres").c_str());
        if (PQstatus(admin) != CONNECTION_OK) {
            const std::string message = PQerrorMessage(admin);
            PQfinish(admin);
            throw std::runtime_error("cannot reach the test PostgreSQL: " + message);
        }
        PGresult* r = PQexec(admin, ("CREATE DATABASE " + name).c_str());
        const bool ok = PQresultStatus(r) == PGRES_COMMAND_OK;
        const std::string message = PQresultErrorMessage(r);
        PQclear(r);
        PQfinish(admin);
        if (!ok) throw std::runtime_error("CREATE DATABASE failed: " + message);
        return connectionString(name);
    }

    ~PostgresCluster() {
        if (started_) run({pgBin("pg_ctl"), "-D", (dir_ / "data").string(), "-m", "immediate", "-w", "stop"});
        std::error_code ignored;
        std::filesystem::remove_all(dir_, ignored);
    }

  private:
    PostgresCluster() {
        char pattern[] = "/tmp/vocle-pg-XXXXXX";
        if (!mkdtemp(pattern)) throw std::runtime_error("mkdtemp failed");
        dir_ = pattern;
        if (geteuid() == 0) {
            const passwd* user = getpwnam("postgres");
            if (!user) throw std::runtime_error("running as root needs the postgres system user");
            if (chown(dir_.c_str(), user->pw_uid, user->pw_gid) != 0) throw std::runtime_error("chown failed");
            asUser_ = "postgres";
        }
        const std::string data = (dir_ / "data").string();
        if (run({pgBin("initdb"), "-D", data, "-A", "trust", "-U", "vocle", "-E", "UTF8", "--no-sync",
                 "--no-instructions"}) != 0)
            throw std::runtime_error("initdb failed; see " + (dir_ / "log").string());
        // No TCP listener at all; fsync off because the cluster is thrown away.
        if (run({pgBin("pg_ctl"), "-D", data, "-l", (dir_ / "log").string(), "-w", "-t", "60", "-o",
                 "-k " + dir_.string() + " -c listen_addresses= -p 5432 -F", "start"}) != 0)
            throw std::runtime_error("pg_ctl start failed; see " + (dir_ / "log").string());
        started_ = true;
    }

    std::string connectionString(const std::string& database) const {
        return "host=" + dir_.string() + " port=5432 user=vocle dbname=" + database;
    }

    static std::string pgBin(const std::string& tool) {
        std::filesystem::path best;
        for (const auto& e : std::filesystem::directory_iterator("/usr/lib/postgresql")) {
            if (std::filesystem::exists(e.path() / "bin" / tool) && e.path() > best) best = e.path();
        }
        if (best.empty()) throw std::runtime_error("PostgreSQL server binaries are not installed");
        return (best / "bin" / tool).string();
    }

    // Runs a command (as the cluster's user), output to the log; returns its exit status.
    int run(std::vector<std::string> args) const {
        if (!asUser_.empty()) args.insert(args.begin(), {"/usr/sbin/runuser", "-u", asUser_, "--"});
        std::vector<char*> argv;
        for (auto& a : args) argv.push_back(a.data());
        argv.push_back(nullptr);
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        const std::string log = (dir_ / "setup.log").string();
        posix_spawn_file_actions_addopen(&actions, 1, log.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0644);
        posix_spawn_file_actions_adddup2(&actions, 1, 2);
        pid_t pid = -1;
        const int spawned = posix_spawn(&pid, argv[0], &actions, nullptr, argv.data(), environ);
        posix_spawn_file_actions_destroy(&actions);
        if (spawned != 0) return -1;
        int status = 0;
        waitpid(pid, &status, 0);
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

    std::filesystem::path dir_;
    std::string asUser_;
    bool started_ = false;
    std::mutex mutex_;
    int databases_ = 0;
};

// The store the integration tests run against: SQLite unless VOCLE_TEST_STORE=postgres.
inline bool testsUsePostgres() {
    const char* store = std::getenv("VOCLE_TEST_STORE");
    return store && std::string(store) == "postgres";
}

}  // namespace vocle::testing
