#include "engine/Expander.h"

#include "engine/Typos.h"
#include "library/Site.h"
#include "library/Text.h"
#include "render/ScriptOutput.h"

#include <algorithm>
#include <cassert>
#include <utility>

namespace quillet {

struct Expander::Pending {
    Matcher::Match match;
    std::int64_t erase = 0;
    std::optional<Snippet> snippet; // nothing for corrections and symbol sets
    std::uint64_t keysAtMatch = 0;  // a key typed since then rules out an undo
    std::string app;                // where the abbreviation was typed
    // While an unlock or a script takes its time the user may type on after the abbreviation:
    // the characters typed since, and whether something made the abbreviation's place unknown.
    std::int64_t typedAfter = 0;
    bool lost = false;
    // A quick expansion holds the keyboard first: the few keys that reached the application
    // before are erased with the abbreviation and typed again after it, where held keys land.
    bool retype = false;
    std::string typedText;
};

namespace {

std::int64_t characters(std::string_view s) {
    return static_cast<std::int64_t>(text::graphemeCount(s));
}

bool sameId(std::string_view a, std::string_view b) {
    return std::equal(a.begin(), a.end(), b.begin(), b.end(), [](char x, char y) {
        auto lower = [](char c) {
            return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
        };
        return lower(x) == lower(y);
    });
}

// A listed site covers its subdomains: "example.com" admits "mail.example.com".
bool hostListed(const std::vector<std::string>& sites, std::string_view host) {
    for (const std::string& entry : sites) {
        std::optional<std::string> listed = siteHost(entry);
        if (!listed) {
            continue;
        }
        if (host == *listed || (host.size() > listed->size() && host.ends_with(*listed) &&
                                host[host.size() - listed->size() - 1] == '.')) {
            return true;
        }
    }
    return false;
}

// Control characters other than blanks and line ends come from keys that type nothing
// (Escape, Delete); they must not reach the matcher.
bool typesNothing(std::string_view text) {
    if (text.size() != 1) {
        return text.empty();
    }
    const auto c = static_cast<unsigned char>(text[0]);
    return (c < 0x20 && c != '\t' && c != '\n' && c != '\r') || c == 0x7f;
}

bool movesCaret(KeyEvent::Key key) {
    using Key = KeyEvent::Key;
    switch (key) {
    case Key::left:
    case Key::right:
    case Key::up:
    case Key::down:
    case Key::home:
    case Key::end:
    case Key::pageUp:
    case Key::pageDown:
        return true;
    default:
        return false;
    }
}

std::string shown(std::string_view s) {
    std::string out = "\"";
    for (char c : s) {
        switch (c) {
        case '\n':
            out += "\\n";
            break;
        case '\r':
            out += "\\r";
            break;
        case '\t':
            out += "\\t";
            break;
        case '"':
        case '\\':
            out += '\\';
            out += c;
            break;
        default:
            out += c;
        }
    }
    return out + "\"";
}

std::string strokeName(const Tokens::KeyStroke& stroke) {
    std::string name;
    const std::pair<std::uint64_t, const char*> modifiers[] = {{Tokens::commandMask, "cmd"},
                                                               {Tokens::controlMask, "ctrl"},
                                                               {Tokens::optionMask, "opt"},
                                                               {Tokens::shiftMask, "shift"},
                                                               {Tokens::superMask, "super"}};
    for (auto [mask, word] : modifiers) {
        if ((stroke.mask & mask) != 0) {
            name += word;
            name += '+';
        }
    }
    static const std::vector<std::string> keys = [] {
        std::vector<std::string> all{"return", "tab",   "space", "delete", "esc",
                                     "left",   "right", "down",  "up"};
        for (char c = 'a'; c <= 'z'; ++c) {
            all.emplace_back(1, c);
        }
        for (char c = '0'; c <= '9'; ++c) {
            all.emplace_back(1, c);
        }
        return all;
    }();
    for (const std::string& key : keys) {
        if (auto known = Tokens::keyStroke(key); known && known->code == stroke.code) {
            return name + key;
        }
    }
    return name + "key" + std::to_string(stroke.code);
}

} // namespace

// Steps -------------------------------------------------------------------------------------

Expander::Step Expander::Step::erase(std::int64_t count) {
    Step s;
    s.kind = Kind::erase;
    s.count = count;
    return s;
}

Expander::Step Expander::Step::insert(Payload payload) {
    Step s;
    s.kind = Kind::insert;
    s.payload = std::move(payload);
    return s;
}

Expander::Step Expander::Step::press(Tokens::KeyStroke stroke) {
    Step s;
    s.kind = Kind::press;
    s.stroke = stroke;
    return s;
}

Expander::Step Expander::Step::left(std::int64_t count) {
    Step s;
    s.kind = Kind::left;
    s.count = count;
    return s;
}

Expander::Step Expander::Step::right(std::int64_t count) {
    Step s;
    s.kind = Kind::right;
    s.count = count;
    return s;
}

Expander::Step Expander::Step::type(std::string text) {
    Step s;
    s.kind = Kind::type;
    s.text = std::move(text);
    return s;
}

Expander::Step Expander::Step::finish() {
    return Step{};
}

std::string Expander::describe(const Step& step) {
    switch (step.kind) {
    case Step::Kind::erase:
        return "erase " + std::to_string(step.count);
    case Step::Kind::insert: {
        if (step.payload.image) {
            return "insert " + step.payload.image->type;
        }
        return "insert " + shown(step.payload.text) + (step.payload.styled ? " +html" : "");
    }
    case Step::Kind::press:
        return "press " + strokeName(step.stroke);
    case Step::Kind::left:
        return "left " + std::to_string(step.count);
    case Step::Kind::right:
        return "right " + std::to_string(step.count);
    case Step::Kind::type:
        return "type " + shown(step.text);
    case Step::Kind::finish:
        return "finish";
    }
    return "?";
}

Expander::Plan Expander::plan(const std::vector<Expansion::Step>& steps, const Snippet* snippet,
                              std::string_view trailer, const LibraryLocation& location) {
    // A picture snippet pastes its picture even when its text renders to nothing.
    const bool picture = snippet != nullptr && snippet->image.has_value();
    std::vector<Expansion::Step> withPicture;
    const std::vector<Expansion::Step>* source = &steps;
    if (picture && std::none_of(steps.begin(), steps.end(), [](const Expansion::Step& s) {
            return std::holds_alternative<Expansion::Text>(s);
        })) {
        withPicture = steps;
        withPicture.insert(withPicture.begin(), Expansion::Text{});
        source = &withPicture;
    }
    std::optional<Snippet> textOnly; // the snippet for every text after the first: no picture

    Plan out;
    bool caret = false;    // a caret mark stands in what is on screen so far
    std::int64_t back = 0; // characters between the mark and the end
    bool firstText = true;
    auto put = [&](std::int64_t count) {
        out.length += count;
        if (caret) {
            back += count;
        }
    };
    for (const Expansion::Step& step : *source) {
        if (const auto* text = std::get_if<Expansion::Text>(&step)) {
            const Snippet* owner = snippet;
            if (picture && !firstText) {
                if (!textOnly) {
                    textOnly = *snippet;
                    textOnly->image.reset();
                }
                owner = &*textOnly;
            }
            firstText = false;
            Payload payload = Payload::make(text->text, owner, location);
            if (payload.text.empty() && !payload.image) {
                continue;
            }
            const std::int64_t count = payload.image ? 1 : characters(payload.text);
            const bool marked = !payload.image && text->cursorBack > 0;
            out.steps.push_back(Step::insert(std::move(payload)));
            if (marked) {
                caret = true;
                back = std::min<std::int64_t>(text->cursorBack, count);
                out.length += count;
            } else {
                put(count);
            }
        } else if (const auto* key = std::get_if<Expansion::Key>(&step)) {
            out.steps.push_back(Step::press(key->stroke));
            out.pressesKeys = true;
            caret = false; // the key may have moved the caret anywhere
            back = 0;
        } else if (const auto* literal = std::get_if<Expansion::Literal>(&step)) {
            out.steps.push_back(Step::type(literal->text));
            put(characters(literal->text));
        }
    }
    if (!trailer.empty()) {
        out.steps.push_back(Step::type(std::string(trailer)));
        out.trailer = characters(trailer);
        put(out.trailer);
    }
    if (caret && back > 0) {
        out.steps.push_back(Step::left(back));
        out.cursorBack = back;
    }
    out.steps.push_back(Step::finish());
    return out;
}

std::int64_t Expander::eraseCount(const Matcher::Match& match, bool byTab, bool held) {
    const std::int64_t whole = characters(match.abbreviation);
    if (!match.trailer.empty()) {
        // The whole abbreviation or word is on screen, and the delimiter after it unless held.
        return whole + (held ? 0 : characters(match.trailer));
    }
    if (byTab) {
        return whole;
    }
    // Instantly: the key just pressed typed the abbreviation's last character.
    return held ? std::max<std::int64_t>(whole - 1, 0) : whole;
}

bool Expander::admits(const Snippet& snippet, std::string_view app,
                      const std::optional<Site>& site) {
    if (snippet.scope == Snippet::Scope::everywhere) {
        return true;
    }
    bool listed = !app.empty() && std::any_of(snippet.apps.begin(), snippet.apps.end(),
                                              [&](const std::string& a) { return sameId(a, app); });
    if (!listed && site && !app.empty() && sameId(site->browser, app)) {
        listed = hostListed(snippet.sites, site->host);
    }
    return snippet.scope == Snippet::Scope::only ? listed : !listed;
}

// Life --------------------------------------------------------------------------------------

Expander::Expander(Platform platform, Services services)
    : keys_(platform.keys), executor_(platform.executor), front_(platform.front),
      scheduler_(platform.scheduler), secure_(platform.secure), services_(services),
      askForm_([](const std::vector<Tokens::Field>& fields, FormDone done) {
          done(Expansion::defaults(fields));
      }),
      all_(std::make_shared<const std::vector<Snippet>>()), appId_(front_.id()),
      self_(std::make_shared<Expander*>(this)) {
    if (services_.usageFile != nullptr) {
        usage_ = services_.usageFile->load();
        usageWriter_ = std::make_unique<UsageWriter>(*services_.usageFile, usage_, scheduler_);
    }
    preferencesChanged();
    front_.setOnChange([this] {
        refreshFront();
        syncGrabs();
    });
}

Expander::~Expander() {
    self_.reset();
    front_.setOnChange({});
    stop();
    // Unlocks wait for the user; their results are dropped, but their threads must end first.
    for (auto& [id, thread] : unlocks_) {
        thread.join();
    }
}

bool Expander::start(std::string& error) {
    if (listening_) {
        return true;
    }
    if (!keys_.start(*this, error)) {
        return false;
    }
    listening_ = true;
    tabGrabbed_ = false;
    escapeGrabbed_ = false;
    returnGrabbed_ = false;
    arrowsGrabbed_ = false;
    matcher_.clear();
    syncGrabs();
    return true;
}

void Expander::stop() {
    if (!listening_) {
        return;
    }
    if (tabGrabbed_) {
        keys_.grabTab(false);
    }
    if (escapeGrabbed_) {
        keys_.grabEscape(false);
    }
    if (returnGrabbed_) {
        keys_.grabReturn(false);
    }
    if (arrowsGrabbed_) {
        keys_.grabArrows(false);
    }
    hidePopup();
    arrowsGrabbed_ = false;
    tabGrabbed_ = false;
    escapeGrabbed_ = false;
    returnGrabbed_ = false;
    keys_.stop();
    listening_ = false;
    matcher_.clear();
    clearUndo();
    saveUsageNow();
}

void Expander::update(std::vector<Snippet> library) {
    update(std::make_shared<const std::vector<Snippet>>(std::move(library)));
}

void Expander::update(SnippetList library) {
    assert(scheduler_.isMainThread());
    all_ = library ? std::move(library) : std::make_shared<const std::vector<Snippet>>();
    std::vector<Uuid> ids;
    ids.reserve(all_->size());
    for (const Snippet& s : *all_) {
        ids.push_back(s.id);
    }
    const std::size_t before = usage_.uses.size();
    usage_.seed(ids, Date::now());
    if (usage_.uses.size() != before) {
        saveUsage();
    }
    rebuild();
    syncGrabs();
}

std::optional<Expander::Site> Expander::Site::fromNotice(std::string_view notice) {
    const std::size_t blank = notice.find(' ');
    if (blank == std::string_view::npos || blank == 0 || blank + 1 == notice.size()) {
        return std::nullopt;
    }
    return Site{std::string(notice.substr(0, blank)), std::string(notice.substr(blank + 1))};
}

void Expander::setSite(std::optional<Site> site) {
    if (site == site_) {
        return;
    }
    site_ = std::move(site);
    rescope();
    syncGrabs();
}

void Expander::preferencesChanged() {
    const Preferences& preferences = services_.preferences;
    matcher_.setCorrections(Typos::corrections(preferences));
    matcher_.setExtras(Typos::extras(preferences));
    suggesting_ = preferences.isOn(suggestionsKey);
    popupOn_ = preferences.isOn(popupKey);
    if (!popupOn_) {
        hidePopup();
    }
    syncGrabs();
}

void Expander::setAskForm(AskForm ask) {
    askForm_ = ask ? std::move(ask) : [](const std::vector<Tokens::Field>& fields, FormDone done) {
        done(Expansion::defaults(fields));
    };
}

void Expander::setPopup(MatchPopup* popup) {
    hidePopup();
    popup_ = popup;
}

bool Expander::idle() const {
    return queue_.empty() && !running_ && preparing_ == 0;
}

// The active set ------------------------------------------------------------------------------

void Expander::refreshFront() {
    std::string id = front_.id();
    if (id == appId_) {
        return;
    }
    appId_ = std::move(id);
    // What was typed belongs to the application left behind.
    breakContext();
    rescope();
}

void Expander::rescope() {
    // Only scoped snippets come and go with the application or site, and there are few of
    // them: the whole set, a pass over the library, is made again only when one does.
    for (std::size_t i = 0; i < scoped_.size(); ++i) {
        if (admits(*scoped_[i], appId_, site_) != admitted_[i]) {
            rebuild();
            return;
        }
    }
}

void Expander::rebuild() {
    // Plain abbreviations go into flat sorted lists rather than one node per entry: with a large
    // library, nodes freed between ones that stay would keep their pages from the system.
    active_.clear();
    patterns_.clear();
    Matcher::Modes modes;
    std::map<std::string, std::string> patterns;
    scoped_.clear();
    admitted_.clear();
    for (const Snippet& s : *all_) {
        if (s.archived || s.abbreviation.empty()) {
            continue;
        }
        if (s.scope != Snippet::Scope::everywhere) {
            const bool admitted = admits(s, appId_, site_);
            scoped_.push_back(&s);
            admitted_.push_back(admitted);
            if (!admitted) {
                continue;
            }
        }
        // The first snippet of an abbreviation wins, as in the library's order.
        if (s.regex) {
            if (patterns_.emplace(s.abbreviation, &s).second) {
                patterns.emplace(s.abbreviation, s.content);
            }
        } else {
            active_.emplace_back(s.abbreviation, &s);
        }
    }
    std::stable_sort(active_.begin(), active_.end(),
                     [](const auto& a, const auto& b) { return a.first < b.first; });
    active_.erase(std::unique(active_.begin(), active_.end(),
                              [](const auto& a, const auto& b) { return a.first == b.first; }),
                  active_.end());
    active_.shrink_to_fit();
    // The matcher only decides that an abbreviation fired; its content is looked up here, so
    // the matcher keeps no second copy of every content.
    std::vector<std::string_view> keys;
    keys.reserve(active_.size());
    for (const auto& [abbreviation, snippet] : active_) {
        keys.push_back(abbreviation);
        if (snippet->trigger) {
            modes.emplace(abbreviation, *snippet->trigger);
        }
    }
    // Views into the library, which all_ keeps alive until the next rebuild.
    matcher_.setAbbreviationViews(std::move(keys), std::move(modes));
    matcher_.setPatterns(std::move(patterns));
    matcher_.compile();
}

const Snippet* Expander::activeSnippet(std::string_view abbreviation) const {
    auto found =
        std::lower_bound(active_.begin(), active_.end(), abbreviation,
                         [](const auto& entry, std::string_view key) { return entry.first < key; });
    return found != active_.end() && found->first == abbreviation ? found->second : nullptr;
}

Matcher::Mode Expander::globalMode() const {
    auto raw = services_.preferences.text(triggerModeKey);
    return triggerModeFromRaw(raw.value_or("")).value_or(Matcher::Mode::instant);
}

void Expander::syncGrabs() {
    if (!listening_ || keys_.canSwallow()) {
        return;
    }
    matcher_.setMode(globalMode());
    // Each grab is asked for only when it changes: a grab is a round trip to the X server.
    const auto sync = [this](bool wanted, bool& grabbed, void (KeySource::*grab)(bool)) {
        if (wanted != grabbed) {
            (keys_.*grab)(wanted);
            grabbed = wanted;
        }
    };
    sync(matcher_.wouldFire(Matcher::Mode::tab) || popupVisible_, tabGrabbed_, &KeySource::grabTab);
    sync(matcher_.wouldFire(Matcher::Mode::delimiter) || matcher_.wouldCorrect() || popupVisible_,
         returnGrabbed_, &KeySource::grabReturn);
    sync(undo_.has_value() || popupVisible_, escapeGrabbed_, &KeySource::grabEscape);
    sync(popupVisible_, arrowsGrabbed_, &KeySource::grabArrows);
}

// Events ----------------------------------------------------------------------------------------

Verdict Expander::key(const KeyEvent& event) {
    assert(scheduler_.isMainThread());
    if (event.key == KeyEvent::Key::modifier) {
        return Verdict::pass; // a modifier alone types nothing and moves nothing
    }
    ++keysSeen_;
    if (paused()) {
        // What is typed now is a password: it leaves no trace, and what came before it no
        // longer runs on into what comes after.
        matcher_.clear();
        repeats_.breakRun();
        clearUndo();
        hidePopup();
        syncGrabs();
        return Verdict::pass;
    }
    refreshFront();
    Verdict verdict = Verdict::pass;
    const KeyEvent::Modifiers& held = event.modifiers;
    const bool bare = !held.control && !held.super && !held.alt && !held.shift;
    if (auto answered = popupKeys(event)) {
        verdict = *answered;
    } else if (event.key == KeyEvent::Key::escape && event.held && bare && undo_) {
        takeBack();
        verdict = Verdict::swallow;
    } else {
        clearUndo(); // only the very next key may take an expansion back
        verdict = handle(event);
    }
    typedWhilePreparing(event, verdict);
    updatePopup();
    syncGrabs();
    return verdict;
}

std::optional<Verdict> Expander::popupKeys(const KeyEvent& event) {
    using Key = KeyEvent::Key;
    const KeyEvent::Modifiers& held = event.modifiers;
    if (!popupVisible_ || !event.held || held.control || held.super || held.alt || held.shift) {
        return std::nullopt;
    }
    switch (event.key) {
    case Key::tab:
    case Key::enter: {
        const Matcher::Match* selected = popupModel_.selected();
        if (selected == nullptr) {
            return std::nullopt;
        }
        const Matcher::Match match = *selected;
        hidePopup();
        matcher_.clear();
        clearUndo();
        perform(match, match.onScreen);
        return Verdict::swallow;
    }
    case Key::escape:
        hidePopup();
        matcher_.clear();
        return Verdict::drop;
    case Key::up:
    case Key::down:
        popupModel_.move(event.key == Key::down ? 1 : -1);
        popup_->select(popupModel_.selectedIndex());
        return Verdict::drop;
    default:
        return std::nullopt;
    }
}

void Expander::updatePopup() {
    if (popup_ == nullptr || !popupOn_ || !listening_ || paused()) {
        hidePopup();
        return;
    }
    auto candidates = PopupModel::candidates(matcher_.buffer(), active_, usage_);
    if (candidates.empty()) {
        hidePopup();
        return;
    }
    if (!popupModel_.set(std::move(candidates))) {
        return; // the same list: the panel stays as it is
    }
    const std::uint64_t show = ++popupShows_;
    popup_->show(popupModel_.candidates(),
                 [alive = std::weak_ptr<Expander*>(self_), show](bool visible) {
                     auto self = alive.lock();
                     if (!self || (*self)->popupShows_ != show) {
                         return; // the typing moved on meanwhile
                     }
                     (*self)->popupVisible_ = visible;
                     (*self)->syncGrabs();
                 });
}

void Expander::hidePopup() {
    const bool up = popupVisible_ || !popupModel_.candidates().empty();
    popupModel_.clear();
    popupVisible_ = false;
    ++popupShows_;
    if (up && popup_ != nullptr) {
        popup_->hide();
    }
}

void Expander::typedWhilePreparing(const KeyEvent& event, Verdict verdict) {
    using Key = KeyEvent::Key;
    std::erase_if(waiting_, [](const std::weak_ptr<Pending>& p) { return p.expired(); });
    for (const auto& weak : waiting_) {
        const auto pending = weak.lock();
        if (pending->keysAtMatch == keysSeen_ || pending->app != appId_) {
            continue; // the key that completed this very match, or one typed into a dialog
        }
        if (pending->retype && event.held) {
            continue; // held by the expansion: it lands after it
        }
        const KeyEvent::Modifiers& held = event.modifiers;
        const bool reached = verdict == Verdict::pass || !event.held;
        if (!reached || held.control || held.super || held.alt) {
            pending->lost = true; // another expansion, or a shortcut: anything may have moved
        } else if (event.key == Key::backspace) {
            --pending->typedAfter;
            pending->typedText.resize(pending->typedText.size() -
                                      text::lastGraphemeSize(pending->typedText));
        } else if (event.key == Key::other) {
            pending->typedAfter += characters(event.text);
            pending->typedText += event.text;
        } else if (event.key != Key::escape) {
            pending->lost = true; // the caret moved, or Tab and Return acted on the application
        }
        // Erased back into the abbreviation: only what is left of it goes.
        if (pending->typedAfter < 0) {
            pending->erase += pending->typedAfter;
            pending->typedAfter = 0;
            pending->lost = pending->lost || pending->erase < 0;
        }
    }
}

Verdict Expander::handle(const KeyEvent& event) {
    using Key = KeyEvent::Key;
    const KeyEvent::Modifiers& held = event.modifiers;
    if (held.control || held.super || held.alt) {
        breakContext(); // a shortcut: select all, cut, switch windows, a menu...
        return Verdict::pass;
    }
    if (event.key == Key::backspace) {
        matcher_.dropLast();
        if (suggesting_) {
            repeats_.backspace();
        }
        return Verdict::pass;
    }
    if (movesCaret(event.key)) {
        matcher_.clear();
        return Verdict::pass;
    }
    matcher_.setMode(globalMode());
    if (event.key == Key::tab || event.key == Key::enter) {
        const bool plain = !held.shift && !held.alt;
        if (event.key == Key::tab && event.held && plain) {
            if (auto match = matcher_.fire(Matcher::Mode::tab, "")) {
                perform(*match, eraseCount(*match, true, true));
                return Verdict::swallow;
            }
        }
        if (event.key == Key::enter && event.held && plain && !keys_.canSwallow()) {
            if (auto match = matcher_.feed("\r")) {
                perform(*match, eraseCount(*match, false, true));
                return Verdict::swallow;
            }
        }
        // A Tab or Return the application has acted on (moved the focus, sent a message) must
        // not be answered with an expansion: what would be erased is no longer in front.
        if (!event.held || !keys_.canSwallow()) {
            if (suggesting_) {
                repeats_.feed("\n");
            }
            matcher_.clear();
            return Verdict::pass;
        }
    }
    if (typesNothing(event.text)) {
        return Verdict::pass;
    }
    if (suggesting_) {
        repeats_.feed(event.text);
    }
    if (auto match = matcher_.feed(event.text)) {
        perform(*match, eraseCount(*match, false, event.held));
        return Verdict::swallow;
    }
    return Verdict::pass;
}

void Expander::click() {
    assert(scheduler_.isMainThread());
    loseWaiting();
    breakContext();
    clearUndo(); // the caret may be anywhere now
    hidePopup();
    syncGrabs();
}

void Expander::reset() {
    assert(scheduler_.isMainThread());
    loseWaiting();
    breakContext();
    clearUndo();
    hidePopup();
    syncGrabs();
}

void Expander::breakContext() {
    matcher_.clear();
    if (!suggesting_) {
        return;
    }
    if (auto suggestion = repeats_.take(); suggestion && onRepeat_) {
        onRepeat_(*suggestion);
    }
}

void Expander::clearUndo() {
    undo_.reset();
    counted_.reset();
}

void Expander::loseWaiting() {
    for (const auto& weak : waiting_) {
        if (const auto pending = weak.lock()) {
            pending->lost = true;
        }
    }
}

// Carrying out a match ----------------------------------------------------------------------

bool Expander::insert(const Uuid& id) {
    assert(scheduler_.isMainThread());
    if (!all_) {
        return false;
    }
    const auto found = std::find_if(all_->begin(), all_->end(),
                                    [&id](const Snippet& snippet) { return snippet.id == id; });
    if (found == all_->end() || found->archived || found->regex) {
        return false;
    }
    refreshFront();
    matcher_.clear();
    clearUndo();
    perform(Matcher::Match{found->abbreviation, found->content, "", 0, std::nullopt}, 0, &*found);
    syncGrabs();
    return true;
}

void Expander::perform(const Matcher::Match& match, std::int64_t erase, const Snippet* chosen) {
    hidePopup();
    auto pending = std::make_shared<Pending>(
        Pending{match, erase, std::nullopt, keysSeen_, appId_, 0, false, false, {}});
    ++preparing_;
    // A snippet the user chose is taken as it is: no scope or abbreviation to look up.
    const Snippet* snippet = chosen;
    if (snippet == nullptr && match.key) {
        auto found = patterns_.find(*match.key);
        snippet = found != patterns_.end() ? found->second : nullptr;
    } else if (snippet == nullptr) {
        snippet = activeSnippet(match.abbreviation);
    }
    if (snippet == nullptr) {
        holdThenProceed(pending, match.expansion);
        return;
    }
    pending->snippet = *snippet;
    if (snippet->locked || snippet->kind != Snippet::Kind::text) {
        waiting_.push_back(pending); // ready later: what is typed meanwhile is counted
    }
    if (snippet->locked) {
        unlock(pending);
        return;
    }
    // A pattern's template already holds what the expression matched.
    std::string content = match.key ? match.expansion : snippet->content;
    if (snippet->kind != Snippet::Kind::text) {
        runScript(pending, snippet->kind, std::move(content));
        return;
    }
    if (!Tokens::fields(Tokens::includes(content, {snippet->abbreviation}, *all_)).empty()) {
        proceed(pending, std::move(content)); // the form takes the keyboard itself
        return;
    }
    holdThenProceed(pending, std::move(content));
}

void Expander::holdThenProceed(std::shared_ptr<Pending> pending, std::string content) {
    // On a listener that sees keys after the application did, the user may already have typed
    // on after the abbreviation; once the keyboard is held, those are all known.
    pending->retype = true;
    waiting_.push_back(pending);
    std::weak_ptr<Expander*> alive = self_;
    Scheduler& scheduler = scheduler_;
    executor_.hold([alive, pending, content = std::move(content), &scheduler]() mutable {
        scheduler.post([alive, pending, content = std::move(content)]() mutable {
            if (auto self = alive.lock()) {
                (*self)->proceed(pending, std::move(content));
            }
        });
    });
}

void Expander::unlock(std::shared_ptr<Pending> pending) {
    LockedSnippets* locked = services_.locked;
    if (locked == nullptr) {
        --preparing_;
        return;
    }
    // Asking the owner blocks until answered, so it runs on a thread of its own; the answer is
    // used even if the user typed on meanwhile.
    const std::uint64_t id = ++lastUnlock_;
    std::weak_ptr<Expander*> alive = self_;
    Scheduler& scheduler = scheduler_;
    Snippet snippet = *pending->snippet;
    std::string reason = pasteReason(pending->match.abbreviation);
    unlocks_.emplace(
        id, std::thread([locked, snippet = std::move(snippet), reason = std::move(reason),
                         &scheduler, alive, id, pending]() mutable {
            auto unlocked = std::make_shared<Unlocked>(locked->unlockForUse(snippet, reason));
            scheduler.post([alive, id, pending, unlocked] {
                auto self = alive.lock();
                if (!self) {
                    return;
                }
                Expander& engine = **self;
                if (auto thread = engine.unlocks_.find(id); thread != engine.unlocks_.end()) {
                    thread->second.join();
                    engine.unlocks_.erase(thread);
                }
                if (unlocked->outcome != Unlocked::Outcome::ok || !unlocked->snippet) {
                    --engine.preparing_; // refused: the abbreviation stays as typed
                    return;
                }
                pending->snippet = std::move(*unlocked->snippet);
                const Snippet& open = *pending->snippet;
                std::string content = open.content;
                if (const auto& pattern = pending->match.key) {
                    // The matcher only had the locked placeholder to fill in.
                    content = Matcher::substitute(*pattern, pending->match.abbreviation, content)
                                  .value_or(content);
                }
                if (open.kind != Snippet::Kind::text) {
                    engine.runScript(pending, open.kind, std::move(content));
                } else {
                    engine.proceed(pending, std::move(content));
                }
            });
        }));
}

void Expander::runScript(std::shared_ptr<Pending> pending, Snippet::Kind kind, std::string source) {
    std::weak_ptr<Expander*> alive = self_;
    Scheduler& scheduler = scheduler_;
    scriptOutput(kind, std::move(source), services_.preferences,
                 [alive, pending, &scheduler](ScriptResult result) {
                     scheduler.post([alive, pending, result = std::move(result)] {
                         auto self = alive.lock();
                         if (!self) {
                             return;
                         }
                         if (!result) {
                             --(*self)->preparing_; // nothing to insert: leave what was typed
                             return;
                         }
                         (*self)->proceed(pending, *result);
                     });
                 });
}

void Expander::proceed(std::shared_ptr<Pending> pending, std::string content) {
    std::erase_if(waiting_, [&](const std::weak_ptr<Pending>& p) { return p.lock() == pending; });
    if (paused() || pending->lost) {
        // An unlock or a script that ended meanwhile must not type into a prompt; and where the
        // abbreviation is no longer known to be, everything stays as it is.
        --preparing_;
        if (pending->retype) {
            enqueue(Step::finish()); // lets the held keys go
        }
        return;
    }
    if (pending->retype) {
        pending->erase += pending->typedAfter;
    } else if (pending->typedAfter > 0) {
        enqueue(Step::left(pending->typedAfter));
    }
    if (pending->erase > 0) {
        enqueue(Step::erase(pending->erase));
    }
    if (!pending->snippet) {
        // Symbol-set entries are templates too ("<p>{cursor}</p>"); corrections are plain words
        // and come through unchanged.
        carryOut(pending, Expansion::plan(content, {}, {}, {}, renderContext()));
        return;
    }
    const std::string& abbreviation = pending->snippet->abbreviation;
    const auto fields = Tokens::fields(Tokens::includes(content, {abbreviation}, *all_));
    if (fields.empty()) {
        carryOut(pending, Expansion::plan(content, abbreviation, *all_, {}, renderContext()));
        return;
    }
    // The form takes the keyboard: it shows once the abbreviation is erased and the keyboard is
    // the user's again.
    enqueue(Step::finish());
    whenQueueEmpty([this, fields, pending, content = std::move(content)]() mutable {
        ask(fields, std::move(pending), std::move(content));
    });
}

void Expander::ask(const std::vector<Tokens::Field>& fields, std::shared_ptr<Pending> pending,
                   std::string content) {
    std::weak_ptr<Expander*> alive = self_;
    Scheduler& scheduler = scheduler_;
    askForm_(fields, [alive, pending, content = std::move(content),
                      &scheduler](std::optional<Expansion::Values> values) {
        scheduler.post([alive, pending, content, values = std::move(values)] {
            auto self = alive.lock();
            if (!self) {
                return;
            }
            Expander& engine = **self;
            if (!values) {
                --engine.preparing_; // cancelled: the abbreviation stays erased
                if (pending->typedAfter > 0) {
                    engine.enqueue(Step::right(pending->typedAfter));
                    engine.enqueue(Step::finish());
                }
                return;
            }
            auto given = [&values](const std::vector<Tokens::Field>&) { return values; };
            engine.carryOut(pending, Expansion::plan(content, pending->snippet->abbreviation,
                                                     *engine.all_, given, engine.renderContext()));
        });
    });
}

void Expander::carryOut(std::shared_ptr<Pending> pending,
                        std::optional<std::vector<Expansion::Step>> steps) {
    --preparing_;
    if (!steps) {
        enqueue(Step::finish()); // what was erased stays erased; what it borrowed goes back
        return;
    }
    const Snippet* snippet = pending->snippet ? &*pending->snippet : nullptr;
    Plan made = plan(*steps, snippet, pending->match.trailer, services_.location);
    const std::int64_t after = pending->retype ? 0 : pending->typedAfter;
    for (Step& step : made.steps) {
        if (pending->retype && step.kind == Step::Kind::finish && !pending->typedText.empty()) {
            enqueue(Step::type(pending->typedText));
        }
        // The user's caret goes back behind what they typed on, not to the snippet's mark.
        if (after > 0 && step.kind == Step::Kind::left) {
            continue;
        }
        if (after > 0 && step.kind == Step::Kind::finish) {
            enqueue(Step::right(after));
        }
        enqueue(std::move(step));
    }
    std::int64_t saved = 0;
    if (snippet != nullptr) {
        saved = made.length - made.trailer - characters(pending->match.abbreviation);
        usage_.record(snippet->id, saved, Date::now());
        saveUsage();
    }
    // Escape can take the expansion back only while nothing else happened since the match, and
    // only when the plan's result on screen is known: a key press may have done anything.
    if (keysSeen_ == pending->keysAtMatch && !made.pressesKeys) {
        undo_ = Undo{pending->match.abbreviation + pending->match.trailer, made.length,
                     made.cursorBack};
        if (snippet != nullptr) {
            counted_ = Counted{snippet->id, saved};
        }
    }
    syncGrabs();
}

void Expander::takeBack() {
    const Undo undo = *undo_;
    undo_.reset();
    if (counted_) {
        usage_.undo(counted_->id, counted_->saved);
        saveUsage();
        counted_.reset();
    }
    if (undo.cursorBack > 0) {
        enqueue(Step::right(undo.cursorBack));
    }
    if (undo.length > 0) {
        enqueue(Step::erase(undo.length));
    }
    if (!undo.typed.empty()) {
        enqueue(Step::type(undo.typed));
    }
    enqueue(Step::finish());
    matcher_.clear();
}

RenderContext Expander::renderContext() const {
    RenderContext context;
    context.now = Date::now();
    if (services_.clipboard != nullptr) {
        context.clipboard = services_.clipboard->entries();
    }
    return context;
}

void Expander::saveUsage() {
    // Writing the record costs time in proportion to the library: never on the key's path.
    if (usageWriter_) {
        usageWriter_->changed();
    }
}

void Expander::saveUsageNow() {
    if (usageWriter_) {
        usageWriter_->flush();
    }
}

// Running steps ---------------------------------------------------------------------------------

void Expander::enqueue(Step step) {
    queue_.push_back(std::move(step));
    if (!running_) {
        next();
    }
}

void Expander::whenQueueEmpty(std::function<void()> then) {
    if (queue_.empty() && !running_) {
        then();
        return;
    }
    drained_.push_back(std::move(then));
}

void Expander::next() {
    // A step whose executor answers at once is followed by the next in the same turn: a trip
    // through the scheduler would queue the expansion behind all that waits there, such as the
    // echoes of the keys it just typed. One that answers later resumes from the scheduler, so
    // no step ever runs inside another's executor call.
    enum class Call { running, answered, returned, over };
    std::weak_ptr<Expander*> alive = self_;
    while (true) {
        if (queue_.empty()) {
            running_ = false;
            for (auto& then : std::exchange(drained_, {})) {
                then();
            }
            return;
        }
        running_ = true;
        Step step = std::move(queue_.front());
        queue_.pop_front();
        auto call = std::make_shared<Call>(Call::running);
        Executor::Done done = [alive, call] {
            auto self = alive.lock();
            if (!self || *call == Call::answered || *call == Call::over) {
                return;
            }
            if (*call == Call::running) {
                *call = Call::answered;
                return;
            }
            *call = Call::over;
            Expander* engine = *self;
            engine->scheduler_.post([alive, engine] {
                if (alive.lock()) {
                    engine->next();
                }
            });
        };
        run(step, std::move(done));
        if (!alive.lock()) {
            return;
        }
        if (*call != Call::answered) {
            *call = Call::returned;
            return;
        }
        *call = Call::over;
    }
}

void Expander::run(const Step& step, Executor::Done done) {
    switch (step.kind) {
    case Step::Kind::erase:
        executor_.erase(step.count, std::move(done));
        break;
    case Step::Kind::insert:
        executor_.insert(step.payload, std::move(done));
        break;
    case Step::Kind::press:
        executor_.press(step.stroke, std::move(done));
        break;
    case Step::Kind::left:
        executor_.moveLeft(step.count, std::move(done));
        break;
    case Step::Kind::right:
        executor_.moveRight(step.count, std::move(done));
        break;
    case Step::Kind::type:
        executor_.type(step.text, std::move(done));
        break;
    case Step::Kind::finish:
        executor_.finish(std::move(done));
        break;
    }
}

} // namespace quillet
