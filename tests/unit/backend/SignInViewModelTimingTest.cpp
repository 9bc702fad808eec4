#include <gtest/gtest.h>

#include "FakeBackendHarness.h"
#include "screens/SignInViewModel.h"

namespace vocle {
namespace {

using testing::FakeBackendHarness;
using testing::FakeHttpTransport;

class SignInTiming : public ::testing::Test, protected FakeBackendHarness {
  protected:
    SignInTiming() { model = std::make_unique<SignInViewModel>(queue, service(), sessions); }
    std::unique_ptr<SignInViewModel> model;
};

TEST_F(SignInTiming, TheCodeStepAndItsCountdownBeginWhenTheSendAnswerArrives) {
    network->replyStatus(500, "mailer down", {}, 2.0);
    model->email.set("ada@example.org");
    model->sendCode();
    EXPECT_TRUE(model->isLoading.get());
    queue.advance(1.0);
    EXPECT_EQ(model->step.get(), 1);
    EXPECT_EQ(model->retryCountdown.get(), 0);

    queue.advance(1.0);
    EXPECT_FALSE(model->isLoading.get()) << "a failed send still moves on";
    EXPECT_EQ(model->step.get(), 2);
    EXPECT_EQ(model->retryCountdown.get(), 30);
    queue.advance(10.0);
    EXPECT_EQ(model->retryCountdown.get(), 20);

    model->resendCode();  // during the countdown: nothing is sent
    EXPECT_EQ(network->sent().size(), 1u);
    queue.advance(20.0);
    ASSERT_EQ(model->retryCountdown.get(), 0);
    network->replyStatus(200, "{}", {}, 0.5);
    model->resendCode();
    model->resendCode();  // loading: ignored
    EXPECT_EQ(network->sent().size(), 2u);
    queue.advance(0.5);
    EXPECT_EQ(model->retryCountdown.get(), 30) << "restarted when the resend was answered";
    EXPECT_EQ(network->sent()[1].body(), R"({"email":"ada@example.org"})");
}

TEST_F(SignInTiming, AVerifiedCodeBecomesTheSessionWhenItsAnswerArrives) {
    int sessionChanges = 0;
    auto watch = sessions.sessionDidChange.subscribe([&] { ++sessionChanges; });
    model->email.set("typed@example.org");
    model->code.set("123456");
    network->replyStatus(
        200,
        R"({"access_token": "acc-9", "refresh_token": "ref-9", "user": {"id": "u-9", "email": "ada@example.org"}})",
        {}, 3.0);
    model->verifyCode();
    EXPECT_EQ(network->sent()[0].path(), "/auth/verify-otp");
    EXPECT_EQ(Json::parse(network->sent()[0].body()),
              (Json{{"email", "typed@example.org"}, {"token", "123456"}}));
    queue.advance(2.9);
    EXPECT_TRUE(model->isLoading.get());
    EXPECT_FALSE(sessions.load());
    queue.advance(0.1);
    EXPECT_FALSE(model->isLoading.get());
    EXPECT_EQ(sessionChanges, 1);
    ASSERT_TRUE(sessions.load());
    EXPECT_EQ(*sessions.load(), (SupabaseSession{"acc-9", "ref-9", "u-9", "ada@example.org"}));
    EXPECT_EQ(service().accessToken(), "acc-9");
    EXPECT_EQ(service().refreshToken(), "ref-9");
}

TEST_F(SignInTiming, AnAnswerForAPanelThatWentAwayIsDropped) {
    model->email.set("ada@example.org");
    model->code.set("123456");
    network->replyStatus(200, R"({"access_token": "a", "refresh_token": "r", "user": {}})", {}, 1.0);
    model->verifyCode();
    model.reset();
    queue.advance(5.0);
    EXPECT_EQ(network->cancelledCount(), 1u);
    EXPECT_FALSE(sessions.load()) << "the verification was not completed";
    EXPECT_EQ(queue.pendingCount(), 0u) << "no countdown or delivery left behind";
}

}  // namespace
}  // namespace vocle
