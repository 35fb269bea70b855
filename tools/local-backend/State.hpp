#pragma once

#include "Database.hpp"

#include <mutex>
#include <vector>

namespace velto::local {

struct Account {
    std::int64_t id = 0;
    std::string publicId;
    std::string email;
    std::optional<std::string> name;
    std::vector<std::string> genres;
    std::vector<std::string> regions;
    std::int64_t credits = 0;
};

struct LibraryRecord {
    std::string id;
    std::string name;
    std::optional<std::string> lastSyncedAt;
};

/// One track of a library's copy. The tag lists are JSON arrays, as they came.
struct TrackRecord {
    std::string canonicalSig;
    std::optional<std::string> artist, album, title;
    double duration = 0;
    std::string genreTags, regionTags;
    std::optional<std::string> eraTag;
    std::string filename;
    std::optional<std::string> ctime, lastTagged;
};

struct InviteRecord {
    std::string id;
    std::string code;
    std::string inviteeEmail;
    std::int64_t credits = 0;
    std::string status;
    std::string createdAt;
    std::string expiresAt;
};

struct Charge {
    bool done = false;
    std::int64_t available = 0; ///< Credits before the charge.
};

/// Everything that the backend remembers, in one SQLite file. Any thread may call it; each operation is one
/// transaction, so a killed process leaves whole operations only. All fail with DatabaseError.
class State {
  public:
    static constexpr std::int64_t inviteCredits = 500;

    /// `startCredits`: what a new account begins with.
    State(const std::filesystem::path& path, std::int64_t startCredits);

    /// Finds or makes the account of an e-mail address and issues a new token for it. A first sign-in of an
    /// invited address earns both sides their credits. The token is returned once; only its hash is kept.
    std::string signIn(const std::string& email, const std::optional<std::string>& name);
    [[nodiscard]] std::optional<Account> accountOf(const std::string& token);

    void setPreferences(std::int64_t account, const std::vector<std::string>& genres,
                        const std::vector<std::string>& regions);
    void addCredits(std::int64_t account, std::int64_t credits);
    /// Takes the credits for `tracks` tracks, one each, or nothing if there are too few.
    Charge charge(std::int64_t account, std::int64_t tracks);

    LibraryRecord syncLibrary(std::int64_t account, const std::string& name);
    /// Inserts or updates by signature; the number stored, nothing if there is no such library.
    std::optional<std::int64_t> syncTracks(std::int64_t account, const std::string& library,
                                           const std::vector<TrackRecord>& tracks);
    std::optional<std::int64_t> removeTracks(std::int64_t account, const std::string& library,
                                             const std::vector<std::string>& signatures);
    /// Number of tracks deleted with the library; nothing if there is no such library.
    std::optional<std::int64_t> deleteLibrary(std::int64_t account, const std::string& library);

    /// The pending invitation of the address: a new one, or the one that this account sent before. Nothing
    /// if the address has an account already.
    std::optional<InviteRecord> invite(std::int64_t account, const std::string& email);

  private:
    std::optional<std::int64_t> libraryId(std::int64_t account, const std::string& name);
    std::int64_t createAccount(const std::string& email);

    std::mutex mutex_;
    Database database_;
    std::int64_t startCredits_;
};

/// An address as accounts are keyed by it: trimmed, ASCII lower case; nothing if it cannot be one.
[[nodiscard]] std::optional<std::string> normalizedEmail(std::string_view text);

} // namespace velto::local
