// Random templates, libraries, field values and clipboards through the whole expansion. Besides
// the sanitizers' findings, a crash here means a rendered step broke one of its promises.
#include "library/Text.h"
#include "render/Expansion.h"

#include <array>
#include <cmath>
#include <fuzzer/FuzzedDataProvider.h>
#include <limits>

namespace {

using namespace quillet;

constexpr std::array locales{"en_US", "de_DE", "ar_EG", "th_TH", "ja_JP",
                             "he_IL", "fa_IR", "",      "x"};
constexpr std::array zones{
    "America/New_York", "Pacific/Kiritimati", "Pacific/Apia", "Asia/Kathmandu", "UTC", "",
    "Nowhere/Atlantis"};
constexpr std::array calendars{"",        "gregorian", "buddhist", "japanese", "hebrew",
                               "islamic", "persian",   "coptic",   "indian",   "bogus"};

// Saturday 14 November 2026, 22:51 UTC.
constexpr double pinnedSeconds = 816389460;

double moment(FuzzedDataProvider& in) {
    switch (in.ConsumeIntegralInRange(0, 3)) {
    case 0:
        return pinnedSeconds;
    case 1:
        // Around the pinned moment, within a few centuries.
        return pinnedSeconds + in.ConsumeIntegralInRange<std::int64_t>(-1e10, 1e10);
    case 2:
        return in.ConsumeFloatingPoint<double>();
    default:
        return in.PickValueInArray({std::numeric_limits<double>::quiet_NaN(),
                                    std::numeric_limits<double>::infinity(),
                                    -std::numeric_limits<double>::infinity()});
    }
}

void require(bool condition) {
    if (!condition) {
        __builtin_trap();
    }
}

} // namespace

// Input layout: the choices are read from the end of the data, then the texts from its start
// (each ended by a backslash and one more character), and whatever is left is the template.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    FuzzedDataProvider in(data, size);
    RenderContext context;
    context.locale = in.PickValueInArray(locales);
    context.timeZone = in.PickValueInArray(zones);
    context.calendar = in.PickValueInArray(calendars);
    context.now = Date{moment(in)};
    const auto snippetCount = in.ConsumeIntegralInRange(0, 6);
    std::vector<std::uint8_t> flags;
    for (int i = 0; i < snippetCount; ++i) {
        flags.push_back(in.ConsumeIntegral<std::uint8_t>());
    }
    const auto valueCount = in.ConsumeIntegralInRange(0, 4);
    const auto clipCount = in.ConsumeIntegralInRange(0, 4);
    const auto answer = in.ConsumeIntegralInRange(0, 2);

    std::vector<Snippet> library;
    for (std::uint8_t f : flags) {
        Snippet s;
        s.abbreviation = in.ConsumeRandomLengthString(16);
        s.content = in.ConsumeRandomLengthString(512);
        s.archived = (f & 1) != 0;
        s.locked = (f & 2) != 0;
        s.regex = (f & 4) != 0;
        s.kind = (f & 8) != 0 ? Snippet::Kind::shell : Snippet::Kind::text;
        library.push_back(std::move(s));
    }
    Expansion::Values values;
    for (int i = 0; i < valueCount; ++i) {
        std::string name = in.ConsumeRandomLengthString(16);
        values[name] = in.ConsumeRandomLengthString(64);
    }
    for (int i = 0; i < clipCount; ++i) {
        context.clipboard.push_back(in.ConsumeRandomLengthString(64));
    }
    const std::string content = in.ConsumeRemainingBytesAsString();

    Expansion::AskValues ask;
    if (answer == 0) {
        ask = [&](const std::vector<Tokens::Field>&) { return std::optional(values); };
    } else if (answer == 1) {
        ask = Expansion::defaults;
    }
    if (auto steps = Expansion::plan(content, ";top", library, ask, context)) {
        for (const Expansion::Step& step : *steps) {
            if (const auto* text = std::get_if<Expansion::Text>(&step)) {
                require(!text->text.empty());
                require(text->cursorBack >= 0 && static_cast<std::size_t>(text->cursorBack) <=
                                                     text::graphemeCount(text->text));
            } else if (const auto* literal = std::get_if<Expansion::Literal>(&step)) {
                require(literal->text.starts_with("{key:") && literal->text.ends_with("}"));
            }
        }
    } else {
        require(answer == 2 || !ask);
    }

    // A field read back from its own choice token is the same field.
    for (const Tokens::Field& field : Tokens::fields(content)) {
        auto again = Tokens::fields(Tokens::choiceToken(field.name, field.options, field.sorted));
        require(again.size() == 1 && again.front() == field);
    }
    // Text without a brace holds no token.
    if (content.find('{') == std::string::npos) {
        require(Tokens::render(content, context) == Tokens::Rendered{content, 0});
    }
    return 0;
}
