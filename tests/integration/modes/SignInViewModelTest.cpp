#include <gtest/gtest.h>

#include "screens/SignInViewModel.h"
#include "integration/modes/IntegrationGraph.h"

using namespace vocle;
using vocle::testing::IntegrationGraph;
using vocle::testing::runUntil;

namespace {

class SignInTest : public ::testing::Test {
  protected:
    SignInTest() : g(false), vm(g.queue, *g.backend, g.sessions) {}

    // Sends the code for a valid address and waits for the answer.
    void reachCodeStep() {
        vm.email.set("ada@example.org");
        vm.sendCode();
        ASSERT_TRUE(vm.isLoading.get());
        ASSERT_TRUE(runUntil(g.queue, [&] { return vm.step.get() == 2; }));
    }
    bool verify() {
        vm.verifyCode();
        return runUntil(g.queue, [&] { return !vm.isLoading.get(); });
    }

    IntegrationGraph g;
    SignInViewModel vm;
};

TEST_F(SignInTest, TheAddressPatternCoversTheWholeTextAsTyped) {
    EXPECT_TRUE(SignInViewModel::isValidEmail("first.last+tag@mail.example.co"));
    EXPECT_FALSE(SignInViewModel::isValidEmail("ada@example.c")) << "two letters at least after the dot";
    EXPECT_FALSE(SignInViewModel::isValidEmail("ada@example.org ")) << "not trimmed";
    EXPECT_FALSE(SignInViewModel::isValidEmail("x ada@example.org"));
    EXPECT_FALSE(SignInViewModel::isValidEmail("ada@example"));

    vm.email.set("ada@example.org ");
    vm.sendCode();
    EXPECT_EQ(vm.error.get(), "Invalid email");
    EXPECT_FALSE(vm.isLoading.get());
    EXPECT_EQ(vm.step.get(), 1);

    vm.email.set("");
    vm.error.set(std::nullopt);
    vm.sendCode();
    EXPECT_FALSE(vm.error.get().has_value()) << "an empty address does nothing";
    g.queue.runUntilIdle();
    EXPECT_TRUE(g.server.requests("POST", "/auth/send-otp").empty());
}

TEST_F(SignInTest, SendingMovesToTheCodeStepWhateverTheAnswer) {
    g.server.failWith(500);
    vm.email.set("ada@example.org");
    vm.error.set(std::string("Invalid email"));
    vm.sendCode();
    EXPECT_FALSE(vm.error.get().has_value());
    EXPECT_EQ(vm.primaryButtonTitle(), "Sending...");
    ASSERT_TRUE(runUntil(g.queue, [&] { return vm.step.get() == 2; }));
    EXPECT_FALSE(vm.isLoading.get());
    EXPECT_EQ(vm.retryCountdown.get(), 30);
    EXPECT_EQ(vm.heading(), "Check your email");
    const auto sent = g.server.requests("POST", "/auth/send-otp");
    ASSERT_EQ(sent.size(), 1u);
    EXPECT_EQ(sent[0].body, (Json{{"email", "ada@example.org"}}));
    EXPECT_TRUE(sent[0].authorization.empty());
}

TEST_F(SignInTest, ResendWaitsForTheThirtySecondCountdown) {
    reachCodeStep();
    EXPECT_EQ(vm.resendButtonTitle(), "Resend code (30s)");
    vm.resendCode();
    EXPECT_FALSE(vm.isLoading.get()) << "refused during the countdown";
    g.queue.advance(29.0);
    EXPECT_EQ(vm.retryCountdown.get(), 1);
    vm.resendCode();
    EXPECT_FALSE(vm.isLoading.get());
    g.queue.advance(1.0);
    EXPECT_EQ(vm.retryCountdown.get(), 0);
    EXPECT_EQ(vm.resendButtonTitle(), "Resend code");
    EXPECT_TRUE(vm.isRetryTimerRunning()) << "the timer stops at the tick after reaching 0";
    g.queue.advance(1.0);
    EXPECT_FALSE(vm.isRetryTimerRunning());

    vm.email.set("changed@example.org");  // resend uses the stored address without re-checking it
    vm.resendCode();
    EXPECT_TRUE(vm.isLoading.get());
    vm.resendCode();
    ASSERT_TRUE(runUntil(g.queue, [&] { return !vm.isLoading.get(); }));
    EXPECT_EQ(vm.retryCountdown.get(), 30);
    const auto sent = g.server.requests("POST", "/auth/send-otp");
    ASSERT_EQ(sent.size(), 2u) << "a second press while sending does nothing";
    EXPECT_EQ(sent[1].body.at("email"), "changed@example.org");
}

TEST_F(SignInTest, GoingBackClearsTheCodeAndStopsTheCountdown) {
    reachCodeStep();
    g.queue.advance(5.0);
    vm.code.set("1234");
    vm.error.set(std::string("Invalid code"));
    vm.goBack();
    EXPECT_EQ(vm.step.get(), 1);
    EXPECT_EQ(vm.code.get(), "");
    EXPECT_FALSE(vm.error.get().has_value());
    EXPECT_FALSE(vm.isRetryTimerRunning());
    g.queue.advance(5.0);
    EXPECT_EQ(vm.retryCountdown.get(), 25) << "the countdown keeps its value";
}

TEST_F(SignInTest, AWrongCodeOrAnUnusableAnswerIsShownAndChangesNothing) {
    reachCodeStep();
    vm.verifyCode();
    EXPECT_FALSE(vm.isLoading.get()) << "an empty code does nothing";
    vm.code.set("000000");
    ASSERT_TRUE(verify());
    EXPECT_EQ(vm.error.get(), "Invalid code");
    EXPECT_EQ(vm.step.get(), 2);
    EXPECT_FALSE(g.sessions.load().has_value());

    g.server.answerVerifyWith(R"({"access_token": "a", "user": {}})");
    ASSERT_TRUE(verify());
    EXPECT_EQ(vm.error.get(), "Unexpected response");
    g.server.answerVerifyWith("[1, 2]");
    vm.error.set(std::nullopt);
    ASSERT_TRUE(verify());
    EXPECT_EQ(vm.error.get(), "Unexpected response");
    EXPECT_FALSE(g.sessions.load().has_value());
    EXPECT_TRUE(g.backend->accessToken().empty());
}

TEST_F(SignInTest, AVerifiedCodeBecomesTheSessionAndTheClientsTokens) {
    reachCodeStep();
    int changes = 0;
    auto sub = g.sessions.sessionDidChange.subscribe([&] { ++changes; });
    vm.code.set("123456");
    vm.error.set(std::string("Invalid code"));
    ASSERT_TRUE(verify());
    const auto session = g.sessions.load();
    ASSERT_TRUE(session.has_value());
    EXPECT_EQ(*session, (SupabaseSession{"access-1", "refresh-1", "user-42", "ada@example.org"}));
    EXPECT_EQ(g.backend->accessToken(), "access-1");
    EXPECT_EQ(g.backend->refreshToken(), "refresh-1");
    EXPECT_EQ(changes, 1);
    EXPECT_EQ(vm.error.get(), "Invalid code") << "the error line is left as it was";

    // A user record without id and address still signs in.
    g.server.answerVerifyWith(R"({"access_token": "a2", "refresh_token": "r2", "user": {}})");
    ASSERT_TRUE(verify());
    EXPECT_EQ(*g.sessions.load(), (SupabaseSession{"a2", "r2", "", ""}));
}

TEST_F(SignInTest, ControlVPastesTheTrimmedClipboardIntoTheCodeStepOnly) {
    auto clipboard = [] { return std::optional<std::string>(" \n 12 34\t\n"); };
    SignInKeyPress paste{false, true, false, false, "V"};
    EXPECT_FALSE(vm.handleKeyDown(paste, clipboard)) << "step 1 lets the field paste by itself";

    reachCodeStep();
    EXPECT_TRUE(vm.handleKeyDown(paste, clipboard));
    EXPECT_EQ(vm.code.get(), "") << "applied on the main queue";
    g.queue.runUntilIdle();
    EXPECT_EQ(vm.code.get(), "12 34");

    EXPECT_FALSE(vm.handleKeyDown({true, true, false, false, "v"}, clipboard)) << "Ctrl+Shift+V passes";
    EXPECT_FALSE(vm.handleKeyDown({false, false, false, true, "v"}, clipboard)) << "Super+V passes";
    EXPECT_FALSE(vm.handleKeyDown({false, true, false, false, "c"}, clipboard));
    EXPECT_TRUE(vm.handleKeyDown(paste, [] { return std::optional<std::string>(); }));
    g.queue.runUntilIdle();
    EXPECT_EQ(vm.code.get(), "12 34") << "an empty clipboard changes nothing but is still consumed";
}

}  // namespace
