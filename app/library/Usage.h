#pragma once

#include "library/Date.h"
#include "library/FlatMap.h"
#include "library/Snippet.h"
#include "library/Uuid.h"

#include <cstdint>
#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace quillet {

/// How often each snippet expanded, when it last did, and how much typing that spared. A plain
/// value; UsageFile keeps it on disk.
struct Usage {
    /// One snippet's record.
    struct Use {
        std::int64_t count = 0; ///< times expanded, minus undone expansions
        Date last;              ///< the latest expansion, or when the snippet was first seen

        friend bool operator==(const Use&, const Use&) = default;
    };

    /// The orders the snippet list can be sorted in by usage.
    enum class Order {
        mostUsed,    ///< highest count first
        newest,      ///< latest creation first
        alphabetical ///< by abbreviation, ignoring case
    };

    FlatMap<Uuid, Use> uses;     ///< one entry per snippet that has a record
    std::int64_t expansions = 0; ///< expansions recorded, minus undone ones; may go below zero
    std::int64_t characters = 0; ///< characters not typed, minus undone ones; may go below zero

    /// Counts one expansion of id at the moment at that spared characters (negative counts as 0).
    void record(const Uuid& id, std::int64_t characters, Date at);

    /// Takes back one expansion of id; no lower bound, so a stray undo shows in the totals.
    void undo(const Uuid& id, std::int64_t characters);

    /// Starts the ageing of snippets that have no entry yet; existing entries stay as they are.
    void seed(const std::vector<Uuid>& ids, Date at);

    /// Adds the counts of a record kept apart (a session's, while the file could not be read):
    /// totals and counts add up, the later use wins, and an entry that was only seeded there
    /// leaves an existing one alone.
    void add(const Usage& other);

    /// The snippets, in their order, that are live, have an abbreviation and were last used
    /// before the moment given; a snippet without an entry is never stale.
    std::vector<Snippet> stale(const std::vector<Snippet>& snippets, Date before) const;

    /// The snippets expanded at least once since the moment given, latest first.
    std::vector<Snippet> recent(const std::vector<Snippet>& snippets, Date since) const;

    /// The snippets in the order given; equal ones keep their order in the list.
    std::vector<Snippet> sorted(const std::vector<Snippet>& snippets, Order order) const;

    /// The time the spared characters would have taken to type (200 characters a minute),
    /// formatted for locale like "1m 30s"; nothing while no characters were spared.
    std::optional<std::string> timeSaved(const std::string& locale) const;

    friend bool operator==(const Usage&, const Usage&) = default;
};

/// The stored text of an order: "mostUsed", "newest" or "alphabetical".
std::string_view rawValue(Usage::Order order);

/// The order stored as text, or nothing for an unknown word.
std::optional<Usage::Order> orderFromRaw(std::string_view raw);

/// The whole seconds it takes to type characters at 200 characters a minute, rounded half away
/// from zero.
std::int64_t typingSeconds(std::int64_t characters);

/// A duration in hours, minutes and seconds, at most two adjacent units starting at the largest
/// that is not zero and leaving out zero ones, abbreviated for locale: "1h 5m", "1m 30s", "0s".
std::string formatDuration(std::int64_t seconds, const std::string& locale);

/// Texts of the overview screen that present usage.
namespace usageText {
inline constexpr std::string_view timeSavedTitle = "Time saved with Quillet";
inline constexpr std::string_view charactersSuffix = " characters you didn't type";
inline constexpr std::string_view nothingSavedHint =
    "Type an abbreviation anywhere and it counts here.";
inline constexpr std::string_view staleTitle = "Not used in 6 months";
inline constexpr std::string_view nothingStaleTitle = "Everything's in use";
inline constexpr std::string_view nothingStaleDetail =
    "You've used every snippet in the last 6 months.";

/// The title of the recent list for a number of days.
std::string recentTitle(int days);
} // namespace usageText

/// How far back the stale list looks: 182 days.
inline constexpr double staleAfterSeconds = 15'724'800;

/// The content of a usage file for a record: compact JSON, the uses as an array that alternates
/// upper-case UUID text and use object.
std::string encodeUsage(const Usage& usage);

/// The record a usage file's content holds; nothing, with error saying why, when it is not one.
std::optional<Usage> decodeUsage(std::string_view bytes, std::string& error);

/// The usage file of one computer. A file that cannot be read is never replaced, and one that
/// does not decode is first moved aside (to "usage.json.damaged", numbered if taken), so a save
/// never destroys statistics that could still be recovered by hand. Once such a file reads again,
/// the counts gathered meanwhile are added to it rather than lost.
class UsageFile {
public:
    /// How the last load ended.
    enum class Status {
        notLoaded,  ///< load() was not called yet; saves are refused
        missing,    ///< no file yet: an empty record
        ok,         ///< the file's record
        setAside,   ///< the file did not decode and was moved aside; an empty record
        damaged,    ///< the file did not decode and could not be moved; saves are refused
        unreadable, ///< the file could not be read; saves are refused
    };

    /// The file at path (normally LibraryLocation::usageFile()); nothing is read yet.
    explicit UsageFile(std::filesystem::path path);

    /// Reads the record; an empty one when the file is missing or not usable (see status()).
    Usage load();

    /// Replaces the file atomically (mode 0600), creating its folder (mode 0700). When the last
    /// load could not use the file, it is read again first and, once it reads, its record is
    /// added to usage (which then holds the whole history). False, with lastError() set, when
    /// the write failed or was refused because the file on disk still cannot be read.
    bool save(Usage& usage);

    /// The first half of save, for a caller that writes elsewhere (on another thread): refuses
    /// while the file still cannot be read, and adds its record to usage once it reads. False,
    /// with lastError() set, when a save would be refused.
    bool prepare(Usage& usage);

    /// The second half of save: writes usage to the file at path atomically. Touches no
    /// UsageFile, so it may run on any thread. False, with error set, when the write failed.
    static bool write(const std::filesystem::path& path, const Usage& usage, std::string& error);

    /// How the last load ended.
    Status status() const { return status_; }

    /// Why the last load or save went wrong, for the log; empty when it did not.
    const std::string& lastError() const { return error_; }

    /// Where the last load moved a file that did not decode; empty unless status() is setAside.
    const std::filesystem::path& setAsidePath() const { return aside_; }

    /// The file.
    const std::filesystem::path& path() const { return path_; }

private:
    std::filesystem::path path_;
    Status status_ = Status::notLoaded;
    std::string error_;
    std::filesystem::path aside_;
};

} // namespace quillet
