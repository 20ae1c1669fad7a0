#include "platform/linux/PamOwnerAuth.h"

#include "platform/linux/TerminalPrompt.h"
#include "support/TempFolder.h"

#include <chrono>
#include <cstdlib>
#include <functional>
#include <gtest/gtest.h>
#include <poll.h>
#include <pty.h>
#include <pwd.h>
#include <sys/wait.h>
#include <unistd.h>

// These tests run a real PAM stack: ctest preloads pam_wrapper, whose service folder holds a
// "quillet" and a "login" service that check passwords with pam_matrix against the file named by
// PAM_MATRIX_PASSWD.
namespace quillet {
namespace {

using testing::TempFolder;
using testing::writeText;

constexpr const char* password = "correct horse";

std::string userName() {
    const passwd* entry = ::getpwuid(::getuid());
    return entry != nullptr ? entry->pw_name : "";
}

class PamOwnerAuthTest : public ::testing::Test {
protected:
    TempFolder temp;
    std::vector<AuthQuestion> questions;

    void SetUp() override {
        const char* services = std::getenv("PAM_WRAPPER_SERVICE_DIR");
        if (std::getenv("PAM_WRAPPER") == nullptr || services == nullptr) {
            FAIL() << "pam_wrapper is not loaded; run this test through ctest";
        }
        serviceFolder = services;
        allowOnly("quillet");
    }

    // Gives this process's user the test password, for the one service whose account check lets
    // the user in.
    void allowOnly(const std::string& service) {
        auto passdb = temp / "passdb";
        writeText(passdb, userName() + ":" + password + ":" + service + "\n");
        ::setenv("PAM_MATRIX_PASSWD", passdb.c_str(), 1);
    }

    PamOwnerAuth::Options options() const {
        PamOwnerAuth::Options o;
        o.serviceFolders = {serviceFolder};
        return o;
    }

    // A prompt that answers every question with answer and remembers the questions.
    AuthPrompt answering(std::optional<std::string> answer) {
        return [this, answer](const AuthQuestion& question) {
            questions.push_back(question);
            return answer;
        };
    }

    std::filesystem::path serviceFolder;
};

TEST_F(PamOwnerAuthTest, TheRightPasswordIsAcceptedAndTheReasonReachesThePrompt) {
    PamOwnerAuth auth(answering(password), options());
    EXPECT_EQ(auth.service(), "quillet");
    AuthResult result = auth.authenticate("paste \u201c;bank\u201d");
    EXPECT_EQ(result.outcome, AuthResult::Outcome::ok) << result.message;
    EXPECT_EQ(result.message, "");
    ASSERT_EQ(questions.size(), 1U);
    EXPECT_EQ(questions[0].kind, AuthQuestion::Kind::secret);
    EXPECT_EQ(questions[0].reason, "paste \u201c;bank\u201d");
    EXPECT_FALSE(questions[0].text.empty());
}

TEST_F(PamOwnerAuthTest, AWrongPasswordACancelOrNoPromptIsRefused) {
    AuthResult wrong = PamOwnerAuth(answering("Correct horse"), options()).authenticate("test");
    EXPECT_EQ(wrong.outcome, AuthResult::Outcome::refused);
    EXPECT_NE(wrong.message.find("quillet"), std::string::npos) << wrong.message;

    AuthResult empty = PamOwnerAuth(answering(""), options()).authenticate("test");
    EXPECT_EQ(empty.outcome, AuthResult::Outcome::refused);

    AuthResult cancelled = PamOwnerAuth(answering(std::nullopt), options()).authenticate("test");
    EXPECT_EQ(cancelled.outcome, AuthResult::Outcome::refused);
    EXPECT_EQ(cancelled.message, "The authentication was cancelled.");

    AuthResult nobody = PamOwnerAuth(AuthPrompt{}, options()).authenticate("test");
    EXPECT_EQ(nobody.outcome, AuthResult::Outcome::refused);
    EXPECT_EQ(nobody.message, "There is no way to ask for the password.");
}

TEST_F(PamOwnerAuthTest, TheAccountMustBeAllowedForTheService) {
    allowOnly("login");
    AuthResult result = PamOwnerAuth(answering(password), options()).authenticate("test");
    EXPECT_EQ(result.outcome, AuthResult::Outcome::refused);
    EXPECT_NE(result.message.find("account check"), std::string::npos) << result.message;
}

TEST_F(PamOwnerAuthTest, WithoutAQuilletServiceTheLoginServiceIsUsed) {
    allowOnly("login");
    auto o = options();
    o.services = {"quillet-not-installed", "login"};
    PamOwnerAuth auth(answering(password), o);
    EXPECT_EQ(auth.service(), "login");
    AuthResult viaLogin = auth.authenticate("test");
    EXPECT_TRUE(viaLogin.ok()) << viaLogin.message;
    // The test's login service asks with echo on, which shows which service answered.
    ASSERT_EQ(questions.size(), 1U);
    EXPECT_EQ(questions[0].kind, AuthQuestion::Kind::visible);

    o.serviceFolders = {temp.path()};
    o.services = {"quillet", "login"};
    EXPECT_EQ(PamOwnerAuth(answering(password), o).service(), "login");
}

TEST_F(PamOwnerAuthTest, AnUnknownAccountIsNeverAccepted) {
    auto o = options();
    o.user = "quillet-no-such-user";
    AuthResult result = PamOwnerAuth(answering(password), o).authenticate("test");
    EXPECT_FALSE(result.ok());
    EXPECT_NE(result.message.find("quillet-no-such-user"), std::string::npos) << result.message;
}

// Bytes that arrive on fd within the time limit, until until() holds for what was read.
std::string readUntil(int fd, const std::function<bool(const std::string&)>& until) {
    std::string seen;
    auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (!until(seen) && std::chrono::steady_clock::now() < deadline) {
        pollfd p{fd, POLLIN, 0};
        if (::poll(&p, 1, 200) <= 0) {
            continue;
        }
        char buffer[256];
        ssize_t got = ::read(fd, buffer, sizeof buffer);
        if (got <= 0) {
            break; // the child closed the terminal
        }
        seen.append(buffer, static_cast<std::size_t>(got));
    }
    return seen;
}

int exitStatus(pid_t child) {
    int status = 0;
    ::waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 100 + WTERMSIG(status);
}

// Authenticates with the terminal prompt in a child whose controlling terminal is a new
// pseudo-terminal, typing answer there once the password is asked for. The child exits 0 when
// accepted, 1 when refused; transcript receives everything the terminal showed.
int authenticateOnTerminal(const PamOwnerAuth::Options& options, const std::string& answer,
                           std::string& transcript) {
    int master = -1;
    pid_t child = ::forkpty(&master, nullptr, nullptr, nullptr);
    if (child == 0) {
        PamOwnerAuth auth(TerminalPrompt{}, options);
        ::_exit(auth.authenticate("paste \u201c;bank\u201d").ok() ? 0 : 1);
    }
    if (child < 0) {
        return -1;
    }
    transcript = readUntil(master, [](const std::string& s) {
        return s.find("Password") != std::string::npos || s.find("assword:") != std::string::npos;
    });
    std::string line = answer + "\n";
    EXPECT_EQ(::write(master, line.data(), line.size()), static_cast<ssize_t>(line.size()));
    transcript += readUntil(master, [](const std::string&) { return false; });
    ::close(master);
    return exitStatus(child);
}

TEST_F(PamOwnerAuthTest, TheTerminalPromptAsksOnTheTerminalWithoutEcho) {
    std::string transcript;
    EXPECT_EQ(authenticateOnTerminal(options(), password, transcript), 0) << transcript;
    EXPECT_NE(transcript.find("Quillet is trying to paste \u201c;bank\u201d."), std::string::npos)
        << transcript;
    EXPECT_EQ(transcript.find(password), std::string::npos) << transcript;

    EXPECT_EQ(authenticateOnTerminal(options(), "wrong", transcript), 1) << transcript;
    EXPECT_EQ(transcript.find("wrong"), std::string::npos) << transcript;
}

TEST_F(PamOwnerAuthTest, WithoutATerminalTheTerminalPromptRefuses) {
    auto o = options();
    pid_t child = ::fork();
    if (child == 0) {
        ::setsid(); // a new session has no controlling terminal
        AuthQuestion question;
        if (TerminalPrompt{}(question)) {
            ::_exit(2);
        }
        AuthResult result = PamOwnerAuth(TerminalPrompt{}, o).authenticate("test");
        ::_exit(result.outcome == AuthResult::Outcome::refused ? 0 : 1);
    }
    EXPECT_EQ(exitStatus(child), 0);
}

} // namespace
} // namespace quillet
