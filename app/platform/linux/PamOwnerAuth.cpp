#include "platform/linux/PamOwnerAuth.h"

#include <cstdlib>
#include <cstring>
#include <pwd.h>
#include <security/pam_appl.h>
#include <system_error>
#include <unistd.h>

namespace quillet {
namespace {

// What the conversation function needs, and what it learnt for the result's message.
struct Conversation {
    const AuthPrompt* prompt = nullptr;
    std::string reason;
    bool noPrompt = false;
    bool cancelled = false;
};

void wipe(std::string& s) {
    ::explicit_bzero(s.data(), s.size());
    s.clear();
}

void freeResponses(pam_response* responses, int count) {
    if (responses == nullptr) {
        return;
    }
    for (int i = 0; i < count; ++i) {
        if (char* answer = responses[i].resp) {
            ::explicit_bzero(answer, std::strlen(answer));
            std::free(answer);
        }
    }
    std::free(responses);
}

extern "C" int converse(int count, const pam_message** messages, pam_response** responses,
                        void* data) {
    auto& conversation = *static_cast<Conversation*>(data);
    if (count <= 0 || messages == nullptr || responses == nullptr) {
        return PAM_CONV_ERR;
    }
    if (conversation.prompt == nullptr || !*conversation.prompt) {
        conversation.noPrompt = true;
        return PAM_CONV_ERR;
    }
    // PAM frees the answers with free(), so they are allocated with the C allocator.
    auto* answers = static_cast<pam_response*>(
        std::calloc(static_cast<std::size_t>(count), sizeof(pam_response)));
    if (answers == nullptr) {
        return PAM_BUF_ERR;
    }
    for (int i = 0; i < count; ++i) {
        const pam_message& message = *messages[i];
        AuthQuestion question;
        question.reason = conversation.reason;
        question.text = message.msg != nullptr ? message.msg : "";
        switch (message.msg_style) {
        case PAM_PROMPT_ECHO_OFF:
            question.kind = AuthQuestion::Kind::secret;
            break;
        case PAM_PROMPT_ECHO_ON:
            question.kind = AuthQuestion::Kind::visible;
            break;
        case PAM_ERROR_MSG:
            question.kind = AuthQuestion::Kind::error;
            break;
        case PAM_TEXT_INFO:
            question.kind = AuthQuestion::Kind::notice;
            break;
        default:
            freeResponses(answers, count);
            return PAM_CONV_ERR;
        }
        std::optional<std::string> answer = (*conversation.prompt)(question);
        if (!answer) {
            conversation.cancelled = true;
            freeResponses(answers, count);
            return PAM_CONV_ERR;
        }
        if (question.kind == AuthQuestion::Kind::secret ||
            question.kind == AuthQuestion::Kind::visible) {
            answers[i].resp = ::strdup(answer->c_str());
            wipe(*answer);
            if (answers[i].resp == nullptr) {
                freeResponses(answers, count);
                return PAM_BUF_ERR;
            }
        }
    }
    *responses = answers;
    return PAM_SUCCESS;
}

std::string currentUser() {
    long size = ::sysconf(_SC_GETPW_R_SIZE_MAX);
    std::string buffer(size > 0 ? static_cast<std::size_t>(size) : 16384, '\0');
    passwd entry{};
    passwd* found = nullptr;
    while (::getpwuid_r(::getuid(), &entry, buffer.data(), buffer.size(), &found) == ERANGE) {
        buffer.resize(buffer.size() * 2);
    }
    return found != nullptr && found->pw_name != nullptr ? found->pw_name : "";
}

bool isRefusal(int code) {
    switch (code) {
    case PAM_AUTH_ERR:
    case PAM_CONV_ERR:
    case PAM_MAXTRIES:
    case PAM_CRED_INSUFFICIENT:
    case PAM_PERM_DENIED:
    case PAM_ACCT_EXPIRED:
    case PAM_ABORT:
        return true;
    default:
        return false;
    }
}

} // namespace

PamOwnerAuth::PamOwnerAuth(AuthPrompt prompt) : PamOwnerAuth(std::move(prompt), Options{}) {}

PamOwnerAuth::PamOwnerAuth(AuthPrompt prompt, Options options)
    : prompt_(std::move(prompt)), options_(std::move(options)) {}

std::string PamOwnerAuth::service() const {
    std::error_code ec;
    for (const auto& name : options_.services) {
        for (const auto& folder : options_.serviceFolders) {
            if (std::filesystem::is_regular_file(folder / name, ec)) {
                return name;
            }
        }
    }
    // Without any of the files PAM would fall back to its "other" rules; the last named
    // service is the deliberate choice instead.
    return options_.services.empty() ? "login" : options_.services.back();
}

AuthResult PamOwnerAuth::authenticate(std::string_view reason) {
    std::string user = options_.user.empty() ? currentUser() : options_.user;
    if (user.empty()) {
        return {AuthResult::Outcome::unavailable, "The current user has no account name."};
    }
    const std::string name = service();

    Conversation conversation;
    conversation.prompt = &prompt_;
    conversation.reason = std::string(reason);
    const pam_conv conv{converse, &conversation};

    pam_handle_t* handle = nullptr;
    int code = ::pam_start(name.c_str(), user.c_str(), &conv, &handle);
    if (code != PAM_SUCCESS || handle == nullptr) {
        return {AuthResult::Outcome::unavailable,
                "PAM could not start the \"" + name + "\" service" +
                    (handle != nullptr ? ": " + std::string(::pam_strerror(handle, code)) : ".")};
    }
    ::pam_set_item(handle, PAM_RUSER, user.c_str());

    code = ::pam_authenticate(handle, 0);
    std::string step = "authentication";
    if (code == PAM_SUCCESS) {
        code = ::pam_acct_mgmt(handle, 0);
        step = "account check";
        // An expired password still proves who is at the keyboard; changing it is not ours.
        if (code == PAM_NEW_AUTHTOK_REQD) {
            code = PAM_SUCCESS;
        }
    }
    std::string detail = code == PAM_SUCCESS ? "" : ::pam_strerror(handle, code);
    ::pam_end(handle, code);

    if (code == PAM_SUCCESS) {
        return {AuthResult::Outcome::ok, {}};
    }
    if (conversation.noPrompt) {
        return {AuthResult::Outcome::refused, "There is no way to ask for the password."};
    }
    if (conversation.cancelled) {
        return {AuthResult::Outcome::refused, "The authentication was cancelled."};
    }
    std::string message =
        "PAM " + step + " for \"" + user + "\" with the \"" + name + "\" service failed: " + detail;
    return {isRefusal(code) ? AuthResult::Outcome::refused : AuthResult::Outcome::unavailable,
            message};
}

} // namespace quillet
