// Random library file text. The library is read with a scanner of its own, which promises to
// report every text it accepts event for event as json::sax_parse does; a crash here means it
// accepted a text that parser refuses, or reported it differently.
#include "library/JsonScanner.h"
#include "library/LibraryFile.h"

#include <cstdlib>
#include <cstring>
#include <string>

namespace {

using nlohmann::json;

// Every event in one string; numbers by their bits, so -0.0 and 0.0 differ.
class Recorder final : public nlohmann::json_sax<json> {
public:
    std::string log;

    bool null() override { return put('n'); }
    bool boolean(bool b) override { return put(b ? 't' : 'f'); }
    bool number_integer(number_integer_t n) override { return put('i', std::to_string(n)); }
    bool number_unsigned(number_unsigned_t n) override { return put('u', std::to_string(n)); }
    bool number_float(number_float_t n, const string_t&) override {
        std::string bits(sizeof n, '\0');
        std::memcpy(bits.data(), &n, sizeof n);
        return put('d', bits);
    }
    bool string(string_t& s) override { return put('s', s); }
    bool binary(binary_t&) override { return put('b'); }
    bool start_object(std::size_t) override { return put('{'); }
    bool key(string_t& s) override { return put('k', s); }
    bool end_object() override { return put('}'); }
    bool start_array(std::size_t) override { return put('['); }
    bool end_array() override { return put(']'); }
    bool parse_error(std::size_t, const std::string&, const nlohmann::detail::exception&) override {
        return false;
    }

private:
    bool put(char kind, const std::string& text = {}) {
        log += kind;
        log += std::to_string(text.size());
        log += ':';
        log += text;
        return true;
    }
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    Recorder fast;
    Recorder reference;
    const bool scanned = quillet::scanJson(text, fast);
    const bool parsed = json::sax_parse(text.begin(), text.end(), &reference);
    if (scanned && (!parsed || fast.log != reference.log)) {
        std::abort();
    }
    std::string error;
    if (!quillet::decodeLibrary(text, error) && error.empty()) {
        std::abort(); // a refusal always says why
    }
    return 0;
}
