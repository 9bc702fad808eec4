#include <istream>
#include <ostream>

#include "CliCommand.h"
#include "CliGraph.h"
#include "backend/BackendOrigin.h"
#include "backend/BackendService.h"
#include "screens/SignInViewModel.h"
#include "foundation/Clock.h"
#include "foundation/Log.h"
#include "foundation/RunLoopMainQueue.h"
#include "foundation/Text.h"
#include "storage/DataFolder.h"
#include "storage/FileStorageManager.h"
#include "storage/SessionStore.h"

namespace vocle::cli {

namespace {

// Enough for the request timeout of the sign-in calls (60 s) to answer first.
constexpr Seconds kRequestWait{75.0};
constexpr int kCodeAttempts = 3;

int signIn(CliContext& ctx) {
    if (ctx.args.size() != 1) throw CliError{"expected one argument: the e-mail address", 2};
    ScopedLogSink logs(std::make_shared<StreamLogSink>(ctx.err));
    CliGraph cli(ctx, "");
    RunLoopMainQueue& queue = cli.queue;
    const DataFolder& folder = cli.services.folder;
    SessionStore& sessions = cli.services.sessions;
    BackendService& backend = *cli.services.backend;
    // The same model as the application's sign-in panel, so the session is stored exactly as there.
    SignInViewModel signIn(queue, backend, sessions);
    bool signedIn = false;
    auto subscription = sessions.sessionDidChange.subscribe([&] { signedIn = true; });

    signIn.email.set(ctx.args[0]);
    signIn.sendCode();
    if (signIn.error.get()) throw CliError{*signIn.error.get()};
    if (!signIn.isLoading.get()) throw CliError{"no address given"};
    if (!queue.runUntil([&] { return signIn.step.get() == 2; }, kRequestWait)) {
        throw CliError{"the backend at " + backend.baseURL() + " did not answer"};
    }
    ctx.err << "A sign-in code was sent to " << ctx.args[0] << ".\n";
    for (int attempt = 1; attempt <= kCodeAttempts; ++attempt) {
        ctx.err << "Code: " << std::flush;
        std::string line;
        if (!std::getline(ctx.in, line)) throw CliError{"no code entered"};
        signIn.code.set(trimWhitespace(line));
        if (signIn.code.get().empty()) {
            --attempt;
            continue;
        }
        signIn.error.set(std::nullopt);
        signIn.verifyCode();
        if (!queue.runUntil([&] { return !signIn.isLoading.get(); }, kRequestWait)) {
            throw CliError{"the backend at " + backend.baseURL() + " did not answer"};
        }
        if (signedIn) {
            const auto session = sessions.load();
            if (!session)
                throw CliError{"the session could not be stored in " + folder.appSupportDirectory().string()};
            ctx.out << "Signed in" << (session->email.empty() ? "" : " as " + session->email) << "\n";
            return 0;
        }
        ctx.err << signIn.error.get().value_or("Invalid code") << "\n";
    }
    throw CliError{"sign-in failed"};
}

int signOut(CliContext& ctx) {
    if (!ctx.args.empty()) throw CliError{"unexpected argument \"" + ctx.args.front() + "\"", 2};
    ScopedLogSink logs(std::make_shared<StreamLogSink>(ctx.err));
    SystemClock clock;
    const DataFolder folder = DataFolder::fromEnvironment(ctx.env);
    FileStorageManager files(folder, clock);
    SessionStore sessions(files);
    const bool wasSignedIn = sessions.load().has_value();
    sessions.clear();
    ctx.out << (wasSignedIn ? "Signed out" : "Not signed in") << "\n";
    return 0;
}

}  // namespace

void addSessionCommands(std::vector<CliCommand>& commands) {
    commands.push_back(
        {"signin", "signin EMAIL",
         "Sign in with an e-mail code: sends the code, reads it from standard input, stores the "
         "session.",
         signIn});
    commands.push_back({"signout", "signout", "End the stored session.", signOut});
}

}  // namespace vocle::cli
