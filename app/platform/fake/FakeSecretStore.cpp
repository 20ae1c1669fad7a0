#include "platform/fake/FakeSecretStore.h"

namespace quillet {
namespace {

SecretResult failed(const std::string& message) {
    return {SecretStatus::failed, {}, message};
}

} // namespace

SecretResult FakeSecretStore::read(std::string_view service, std::string_view account) {
    ++reads;
    if (failure) {
        return failed(*failure);
    }
    auto it = items.find({std::string(service), std::string(account)});
    if (it == items.end()) {
        return {SecretStatus::missing, {}, {}};
    }
    return {SecretStatus::ok, it->second, {}};
}

SecretResult FakeSecretStore::write(std::string_view service, std::string_view account,
                                    std::string_view text) {
    if (failure) {
        return failed(*failure);
    }
    items[{std::string(service), std::string(account)}] = std::string(text);
    return {SecretStatus::ok, {}, {}};
}

SecretResult FakeSecretStore::remove(std::string_view service, std::string_view account) {
    if (failure) {
        return failed(*failure);
    }
    bool erased = items.erase({std::string(service), std::string(account)}) > 0;
    return {erased ? SecretStatus::ok : SecretStatus::missing, {}, {}};
}

} // namespace quillet
