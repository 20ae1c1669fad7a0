#include "platform/linux/PamOwnerAuth.h"

#include "platform/linux/TerminalPrompt.h"
#include "support/TempFolder.h"

#include <cstdlib>
#include <gtest/gtest.h>
#include <pty.h>
#include <pwd.h>
#include <sys/wait.h>
#include <unistd.h>

// A real PAM stack: ctest preloads pam_wrapper, whose "quillet" and "login" services check
// passwords with pam_matrix against the file named by PAM_MATRIX_PASSWD.
namespace quillet {
namespace {

const std::string password = "correct horse";
const std::string reason = "paste \u201c;bank\u201d";

class PamOwnerAuthTest : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(std::getenv("PAM_WRAPPER") && std::getenv("PAM_WRAPPER_SERVICE_DIR"))
            << "pam_wrapper is not loaded; run this test through ctest";
        options.serviceFolders = {std::getenv("PAM_WRAPPER_SERVICE_DIR")};
        allowOnly("quillet");
    }

    // Gives this process's user the test password; only service's account check lets them in.
    void allowOnly(const std::string& service) {
        const std::string user = ::getpwuid(::getuid())->pw_name;
        testing::writeText(temp / "passdb", user + ":" + password + ":" + service + "\n");
        ::setenv("PAM_MATRIX_PASSWD", (temp / "passdb").c_str(), 1);
    }

    // Authenticates through a prompt that gives answer to every question, and keeps the questions.
    AuthResult answering(std::optional<std::string> answer) {
        questions.clear();
        auto prompt = [&](const AuthQuestion& question) {
            questions.push_back(question);
            return answer;
        };
        return PamOwnerAuth(prompt, options).authenticate(reason);
    }

    // Authenticates with the terminal prompt in a child on a new pseudo-terminal, typing the
    // password there once asked; 0 when accepted. transcript gets all the terminal showed.
    int onTerminal(std::string& transcript) {
        int terminal = -1;
        pid_t child = ::forkpty(&terminal, nullptr, nullptr, nullptr);
        if (child == 0) {
            ::alarm(20); // never wait for an answer that does not come
            ::_exit(PamOwnerAuth(TerminalPrompt{}, options).authenticate(reason).ok() ? 0 : 1);
        }
        char buffer[256];
        for (ssize_t got; (got = ::read(terminal, buffer, sizeof buffer)) > 0;) {
            const bool asked = transcript.find("assword") != std::string::npos;
            transcript.append(buffer, static_cast<std::size_t>(got));
            if (!asked && transcript.find("assword") != std::string::npos) {
                EXPECT_GT(::write(terminal, (password + "\n").data(), password.size() + 1), 0);
            }
        }
        ::close(terminal);
        int status = 0;
        ::waitpid(child, &status, 0);
        return WIFEXITED(status) ? WEXITSTATUS(status) : 100 + WTERMSIG(status);
    }

    testing::TempFolder temp;
    PamOwnerAuth::Options options;
    std::vector<AuthQuestion> questions;
};

TEST_F(PamOwnerAuthTest, OnlyTheRightPasswordForAnAllowedAccountIsAcceptedElseLoginIsAsked) {
    EXPECT_TRUE(answering(password).ok());
    ASSERT_EQ(questions.size(), 1U);
    EXPECT_EQ(questions[0].kind, AuthQuestion::Kind::secret);
    EXPECT_EQ(questions[0].reason, reason);
    for (auto wrong : {std::optional<std::string>("Correct horse"), std::optional<std::string>(""),
                       std::optional<std::string>()}) {
        EXPECT_EQ(answering(wrong).outcome, AuthResult::Outcome::refused) << wrong.value_or("-");
    }
    EXPECT_EQ(PamOwnerAuth(AuthPrompt{}, options).authenticate("x").outcome,
              AuthResult::Outcome::refused);
    allowOnly("login"); // the right password, but the account check refuses
    EXPECT_EQ(answering(password).outcome, AuthResult::Outcome::refused);

    // Without a "quillet" service, "login" asks; the test's one asks with echo on, which shows.
    options.services = {"quillet-not-installed", "login"};
    EXPECT_TRUE(answering(password).ok());
    EXPECT_TRUE(questions.size() == 1 && questions[0].kind == AuthQuestion::Kind::visible);
}

TEST_F(PamOwnerAuthTest, TheTerminalPromptAsksOnTheTerminalWithoutEchoAndNeedsOne) {
    std::string transcript;
    EXPECT_EQ(onTerminal(transcript), 0) << transcript;
    EXPECT_NE(transcript.find("Quillet is trying to " + reason + "."), std::string::npos)
        << transcript;
    EXPECT_EQ(transcript.find(password), std::string::npos) << transcript;

    // Without a controlling terminal, as in a new session, it refuses.
    int status = testing::inChild([&] {
        ::setsid();
        return TerminalPrompt{}(AuthQuestion{}) ||
               PamOwnerAuth(TerminalPrompt{}, options).authenticate("x").outcome !=
                   AuthResult::Outcome::refused;
    });
    EXPECT_EQ(status, 0);
}

} // namespace
} // namespace quillet
