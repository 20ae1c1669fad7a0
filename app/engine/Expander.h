#pragma once

#include "engine/Executor.h"
#include "engine/FrontApplication.h"
#include "engine/KeySource.h"
#include "engine/Matcher.h"
#include "engine/Popup.h"
#include "engine/Repeats.h"
#include "engine/SecureInput.h"
#include "library/LibraryLocation.h"
#include "library/LockedSnippets.h"
#include "library/Preferences.h"
#include "library/Scheduler.h"
#include "library/Snippet.h"
#include "library/Usage.h"
#include "library/UsageWriter.h"
#include "render/ClipboardHistory.h"
#include "render/Expansion.h"
#include "render/Payload.h"

#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <unordered_map>
#include <vector>

namespace quillet {

/// The keyboard engine: watches what the user types in any application, keeps the matcher fed,
/// and carries out its matches by erasing what was typed and inserting the rendered snippet.
/// It also counts uses, lets Escape take the last expansion back, and spots retyped phrases.
///
/// The logic lives here; the platform only listens (KeySource), carries out intentions
/// (Executor) and names the application in front (FrontApplication). Everything runs on the
/// scheduler's main thread: key events are handled there, and unlocking, scripts and forms hand
/// their results back to it. Insertion steps run one after the other, each when the executor
/// reports the previous one done, never after a fixed pause. A locked snippet or a script is
/// erased and inserted once its text is ready, even if the user typed on meanwhile, since the
/// user asked for it (and confirmed it, for a locked one): the characters typed after the
/// abbreviation are stepped over and the caret is put back behind them. When something else
/// moved the caret meanwhile (a click, an arrow, a shortcut) it is left as typed.
///
/// Where the platform cannot swallow keys (X11), the key that completes a match has already
/// reached the application, so it is erased too and a delimiter is typed again afterwards. Tab
/// and Return then act on the application before the engine could answer them, so they fire
/// only when held: Tab is grabbed exactly while the typed text ends in something that fires on
/// Tab, Return while something would fire on it as a delimiter (an abbreviation, a correction,
/// a symbol), and Escape exactly while an expansion can be taken back. A held Return that
/// fires is typed again after the expansion, so a chat box sends the expanded text.
class Expander final : private KeySource::Observer {
public:
    /// The website open in the front browser, as the browser bridge reports it.
    struct Site {
        std::string browser; ///< the browser's application id
        std::string host;    ///< the site's host, normalised, such as "mail.example.com"

        bool operator==(const Site&) const = default;

        /// The bridge's notice, "<browser id> <host>"; nothing without a browser or a host.
        static std::optional<Site> fromNotice(std::string_view notice);
    };

    /// One intention of an insertion plan, carried out by the Executor.
    struct Step {
        enum class Kind {
            erase,  ///< erase count characters before the caret
            insert, ///< insert payload (pasted, or committed by an input method)
            press,  ///< press stroke
            left,   ///< move the caret count characters left
            right,  ///< move the caret count characters right
            type,   ///< type text key by key
            finish, ///< the expansion is over: give back the borrowed clipboard
        };

        Kind kind = Kind::finish;
        std::int64_t count = 0;
        Payload payload;
        Tokens::KeyStroke stroke;
        std::string text;

        /// Erases count characters.
        static Step erase(std::int64_t count);
        /// Inserts a payload.
        static Step insert(Payload payload);
        /// Presses a key stroke.
        static Step press(Tokens::KeyStroke stroke);
        /// Moves the caret left.
        static Step left(std::int64_t count);
        /// Moves the caret right.
        static Step right(std::int64_t count);
        /// Types text.
        static Step type(std::string text);
        /// Ends an expansion.
        static Step finish();

        bool operator==(const Step&) const = default;
    };

    /// An expansion turned into intentions, with what an undo needs to know about it.
    struct Plan {
        std::vector<Step> steps;     ///< the inserts, presses and typing, the caret move, finish
        std::int64_t length = 0;     ///< characters put on screen, the trailer included
        std::int64_t cursorBack = 0; ///< characters the caret ends up left of the end
        std::int64_t trailer = 0;    ///< characters of the trailer
        bool pressesKeys = false;    ///< the plan presses keys, so what it leaves is unknown
    };

    /// How to take the last expansion back.
    struct Undo {
        std::string typed;           ///< what the user had typed: the abbreviation and trailer
        std::int64_t length = 0;     ///< characters the expansion put on screen
        std::int64_t cursorBack = 0; ///< characters the caret was moved left inside it

        bool operator==(const Undo&) const = default;
    };

    /// The last use recorded, so that an undo can take it back.
    struct Counted {
        Uuid id;
        std::int64_t saved = 0; ///< characters the user did not have to type

        bool operator==(const Counted&) const = default;
    };

    /// Called with the values of a form's fields, or with nothing when it was cancelled.
    using FormDone = std::function<void(std::optional<Expansion::Values>)>;
    /// Asks the user to fill in fields and calls done once, on any thread.
    using AskForm = std::function<void(const std::vector<Tokens::Field>&, FormDone done)>;
    /// Told about a phrase the user keeps retyping.
    using OnRepeat = std::function<void(const Repeats::Suggestion&)>;

    /// The platform's side; everything must outlive the engine.
    struct Platform {
        KeySource& keys;
        Executor& executor;
        FrontApplication& front;
        Scheduler& scheduler;
        const SecureInput* secure = nullptr; ///< null: nothing ever pauses matching
    };

    /// What the engine uses beside the platform; everything must outlive the engine.
    struct Services {
        const Preferences& preferences;
        const LibraryLocation& location;             ///< where snippets' pictures are
        UsageFile* usageFile = nullptr;              ///< null: uses are counted in memory only
        LockedSnippets* locked = nullptr;            ///< null: locked snippets never expand
        const ClipboardHistory* clipboard = nullptr; ///< null: clipboard tokens render empty
    };

    /// The preference that switches repeat suggestions on.
    static constexpr std::string_view suggestionsKey = "suggestions";
    /// The preference that lists matching snippets at the caret while the user types.
    static constexpr std::string_view popupKey = "matchPopup";
    /// The preference holding the global trigger mode.
    static constexpr std::string_view triggerModeKey = "triggerMode";

    /// An engine with an empty library; the usage file is read now. Nothing is watched until
    /// start().
    Expander(Platform platform, Services services);
    Expander(const Expander&) = delete;
    Expander& operator=(const Expander&) = delete;
    /// Stops listening and waits for unlocks still being asked.
    ~Expander() override;

    /// Starts listening; false, with error saying why, when the keyboard cannot be watched.
    bool start(std::string& error);
    /// Stops listening; expansions under way still finish.
    void stop();
    /// True between a successful start() and stop().
    bool isListening() const { return listening_; }

    /// Takes the library as the store hands it over, seeds its usage and rebuilds the active set.
    /// The engine keeps the list itself, not a copy.
    void update(SnippetList library);
    /// Takes a library made by the caller; as update(SnippetList) otherwise.
    void update(std::vector<Snippet> library);
    /// Takes the website the browser bridge reports; nothing when no site is known.
    void setSite(std::optional<Site> site);
    /// Reads the settings again: correction and symbol sets, suggestions.
    void preferencesChanged();

    /// Sets how fields are filled in; the default takes each field's default value.
    void setAskForm(AskForm ask);
    /// Sets the panel that lists matching snippets at the caret (null: none). While it is up,
    /// Return and Tab expand the selected one, Escape takes it down, Up and Down move the
    /// selection; none of them reaches the application.
    void setPopup(MatchPopup* popup);
    /// The candidates the panel lists, and the selection.
    const PopupModel& popup() const { return popupModel_; }
    /// Sets who is told about retyped phrases.
    void setOnRepeat(OnRepeat onRepeat) { onRepeat_ = std::move(onRepeat); }
    /// Forgets every phrase the repeat detector counted.
    void forgetRepeats() { repeats_.forget(); }

    /// Inserts the snippet with id at the caret of the application in front, as its
    /// abbreviation would but with nothing to erase, whatever its scope (the search-and-paste
    /// picker); false when there is no such snippet or it cannot stand alone (archived, a
    /// regular expression).
    bool insert(const Uuid& id);
    /// True when no expansion is being prepared or carried out.
    bool idle() const;
    /// The usage counts; the file follows within a second.
    const Usage& usage() const { return usage_; }
    /// Writes the usage counts not yet in the file and returns once they are.
    void saveUsageNow();
    /// The expansion Escape would take back now, if any.
    const std::optional<Undo>& pendingUndo() const { return undo_; }
    /// The use an undo would take back now, if any.
    const std::optional<Counted>& counted() const { return counted_; }
    /// The matcher, with the active set and the typed buffer.
    const Matcher& matcher() const { return matcher_; }
    /// The repeat detector.
    const Repeats& repeats() const { return repeats_; }
    /// True while another application keeps the user's typing to itself: nothing is matched.
    bool paused() const { return secure_ != nullptr && secure_->active(); }
    /// The application that pauses matching; empty when not paused or when it has no name.
    std::string pausedBy() const { return paused() ? secure_->holder() : std::string(); }

    /// True when snippet's scope admits the application app (ids compared ignoring ASCII case)
    /// and site, which counts only while its browser is app; a listed site covers its subdomains.
    static bool admits(const Snippet& snippet, std::string_view app,
                       const std::optional<Site>& site);

    /// The intentions that insert an expansion's steps, the trailer typed after them and the
    /// caret moved to its mark, then finish. snippet (may be null) decides Markdown and the
    /// picture, which is pasted once, with the first text.
    static Plan plan(const std::vector<Expansion::Step>& steps, const Snippet* snippet,
                     std::string_view trailer, const LibraryLocation& location);

    /// How many characters to erase for a match: what the user typed of it that is on screen.
    /// byTab tells a Tab match; held whether the completing key was held back from the
    /// application.
    static std::int64_t eraseCount(const Matcher::Match& match, bool byTab, bool held);

    /// A step in words, such as erase 3, insert "Hi" +html, press ctrl+v, type " ".
    static std::string describe(const Step& step);

private:
    struct Pending;

    Verdict key(const KeyEvent& event) override;
    void click() override;
    void reset() override;

    Verdict handle(const KeyEvent& event);
    void typedWhilePreparing(const KeyEvent& event, Verdict verdict);
    void holdThenProceed(std::shared_ptr<Pending> pending, std::string content);
    void ask(const std::vector<Tokens::Field>& fields, std::shared_ptr<Pending> pending,
             std::string content);
    void whenQueueEmpty(std::function<void()> then);
    void loseWaiting();
    void breakContext();
    std::optional<Verdict> popupKeys(const KeyEvent& event);
    void updatePopup();
    void hidePopup();
    void clearUndo();
    void refreshFront();
    void rebuild();
    void rescope();
    const Snippet* activeSnippet(std::string_view abbreviation) const;
    void syncGrabs();
    Matcher::Mode globalMode() const;

    void perform(const Matcher::Match& match, std::int64_t erase, const Snippet* chosen = nullptr);
    void unlock(std::shared_ptr<Pending> pending);
    void runScript(std::shared_ptr<Pending> pending, Snippet::Kind kind, std::string source);
    void proceed(std::shared_ptr<Pending> pending, std::string content);
    void carryOut(std::shared_ptr<Pending> pending,
                  std::optional<std::vector<Expansion::Step>> steps);
    void takeBack();
    RenderContext renderContext() const;
    void saveUsage();

    void enqueue(Step step);
    void next();
    void run(const Step& step, Executor::Done done);

    KeySource& keys_;
    Executor& executor_;
    FrontApplication& front_;
    Scheduler& scheduler_;
    const SecureInput* secure_;
    Services services_;

    Matcher matcher_;
    Repeats repeats_;
    Usage usage_;
    std::unique_ptr<UsageWriter> usageWriter_; // null without a usage file
    std::optional<Undo> undo_;
    std::optional<Counted> counted_;
    AskForm askForm_;
    std::vector<std::function<void()>> drained_; // waiting for the queue to run empty
    OnRepeat onRepeat_;
    bool suggesting_ = false;

    // The active set points into the library's one list, which all_ keeps alive.
    SnippetList all_;
    std::string appId_;
    std::optional<Site> site_;
    std::vector<std::pair<std::string_view, const Snippet*>> active_; // by plain abbreviation
    std::unordered_map<std::string_view, const Snippet*> patterns_;   // pattern
    std::vector<const Snippet*> scoped_; // live snippets not meant for everywhere
    std::vector<bool> admitted_;         // whether each of scoped_ is in the active set

    bool listening_ = false;
    bool tabGrabbed_ = false;
    bool escapeGrabbed_ = false;
    bool returnGrabbed_ = false;
    bool arrowsGrabbed_ = false;

    MatchPopup* popup_ = nullptr;
    bool popupOn_ = false; // the preference
    PopupModel popupModel_;
    bool popupVisible_ = false;    // the view said it is up
    std::uint64_t popupShows_ = 0; // answers to older shows are stale
    std::uint64_t keysSeen_ = 0;

    std::deque<Step> queue_;
    bool running_ = false;
    int preparing_ = 0; // expansions waiting for an unlock, a script or a form
    std::vector<std::weak_ptr<Pending>> waiting_; // those of them that take their time

    std::map<std::uint64_t, std::thread> unlocks_;
    std::uint64_t lastUnlock_ = 0;

    // Work handed back later checks this is still alive before touching the engine.
    std::shared_ptr<Expander*> self_;
};

} // namespace quillet
