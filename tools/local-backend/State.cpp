#include "State.hpp"

#include "Secrets.hpp"

#include "platform/core/Date.hpp"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <algorithm>

namespace velto::local {

namespace {

// Kept in the file's user_version. A change of the tables needs a new number and a step from the old one.
constexpr std::int64_t schemaVersion = 1;
constexpr auto inviteLifetime = std::chrono::hours(24 * 30);
constexpr std::size_t tokenBytes = 32;

constexpr const char* schema = R"sql(
CREATE TABLE account (
    id INTEGER PRIMARY KEY, public_id TEXT NOT NULL UNIQUE, email TEXT NOT NULL UNIQUE, name TEXT,
    genres TEXT NOT NULL DEFAULT '[]', regions TEXT NOT NULL DEFAULT '[]', credits INTEGER NOT NULL CHECK (credits >= 0));
CREATE TABLE token (
    hash TEXT PRIMARY KEY, account INTEGER NOT NULL REFERENCES account ON DELETE CASCADE, created_at TEXT NOT NULL);
CREATE TABLE charge (
    id INTEGER PRIMARY KEY, account INTEGER NOT NULL REFERENCES account ON DELETE CASCADE,
    credits INTEGER NOT NULL, at TEXT NOT NULL);
CREATE TABLE library (
    id INTEGER PRIMARY KEY, public_id TEXT NOT NULL UNIQUE,
    account INTEGER NOT NULL REFERENCES account ON DELETE CASCADE, name TEXT NOT NULL, last_synced_at TEXT,
    UNIQUE (account, name));
CREATE TABLE track (
    library INTEGER NOT NULL REFERENCES library ON DELETE CASCADE, canonical_sig TEXT NOT NULL,
    artist TEXT, album TEXT, title TEXT, duration REAL NOT NULL, genre_tags TEXT NOT NULL,
    region_tags TEXT NOT NULL, era_tag TEXT, filename TEXT NOT NULL, ctime TEXT, last_tagged TEXT,
    PRIMARY KEY (library, canonical_sig)) WITHOUT ROWID;
CREATE TABLE invite (
    id TEXT PRIMARY KEY, code TEXT NOT NULL UNIQUE, inviter INTEGER NOT NULL REFERENCES account ON DELETE CASCADE,
    invitee INTEGER REFERENCES account, email TEXT NOT NULL, credits INTEGER NOT NULL, status TEXT NOT NULL,
    created_at TEXT NOT NULL, expires_at TEXT NOT NULL, UNIQUE (inviter, email));
)sql";

Date now() {
    return std::chrono::floor<std::chrono::microseconds>(std::chrono::system_clock::now());
}

std::string nowText() {
    return iso8601(now());
}

std::vector<std::string> list(const std::string& text) {
    return nlohmann::json::parse(text).get<std::vector<std::string>>();
}

void openSchema(Database& database) {
    Transaction transaction(database);
    Statement version(database, "PRAGMA user_version");
    version.step();
    const auto found = version.integer(0);
    version.step();
    if (found > schemaVersion)
        throw DatabaseError(fmt::format("The state file is of version {}, newer than this program's {}",
                                        found, schemaVersion));
    if (found == 0) {
        database.execute(schema);
        database.execute(fmt::format("PRAGMA user_version = {}", schemaVersion).c_str());
    }
    transaction.commit();
}

} // namespace

std::optional<std::string> normalizedEmail(std::string_view text) {
    constexpr std::string_view space = " \t\r\n";
    const auto first = text.find_first_not_of(space);
    if (first == std::string_view::npos) return std::nullopt;
    text = text.substr(first, text.find_last_not_of(space) - first + 1);
    const auto at = text.find('@');
    const bool oneAt = at != std::string_view::npos && text.find('@', at + 1) == std::string_view::npos;
    // 254 bytes is the longest address that mail can carry.
    if (!oneAt || at == 0 || at + 1 == text.size() || text.size() > 254) return std::nullopt;
    if (std::any_of(text.begin(), text.end(), [](unsigned char c) { return c <= ' ' || c == 0x7f; }))
        return std::nullopt;
    std::string email(text);
    for (char& c : email)
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    return email;
}

State::State(const std::filesystem::path& path, std::int64_t startCredits)
    : database_(path)
    , startCredits_(startCredits) {
    openSchema(database_);
}

std::int64_t State::createAccount(const std::string& email) {
    Statement insert(database_, "INSERT INTO account (public_id, email, credits) VALUES (?, ?, ?)");
    insert.bind("user_" + randomToken(9), email, startCredits_).run();
    const auto account = database_.lastInsertId();

    Statement accept(database_, "UPDATE invite SET status = 'accepted', invitee = ? "
                                "WHERE email = ? AND status = 'pending' AND expires_at > ?");
    accept.bind(account, email, nowText()).run();
    Statement earn(database_, "UPDATE account SET credits = credits + ?1 WHERE id IN (SELECT inviter FROM "
                              "invite WHERE invitee = ?2) "
                              "OR (id = ?2 AND EXISTS (SELECT 1 FROM invite WHERE invitee = ?2))");
    earn.bind(inviteCredits, account).run();
    return account;
}

std::string State::signIn(const std::string& email, const std::optional<std::string>& name) {
    const std::lock_guard lock(mutex_);
    Transaction transaction(database_);
    std::optional<std::int64_t> account;
    Statement find(database_, "SELECT id FROM account WHERE email = ?");
    find.bind(email);
    while (find.step())
        account = find.integer(0);
    if (!account) account = createAccount(email);
    if (name) Statement(database_, "UPDATE account SET name = ? WHERE id = ?").bind(*name, *account).run();
    const auto token = randomToken(tokenBytes);
    Statement keep(database_, "INSERT INTO token (hash, account, created_at) VALUES (?, ?, ?)");
    keep.bind(sha256Hex(token), *account, nowText()).run();
    transaction.commit();
    return token;
}

std::optional<Account> State::accountOf(const std::string& token) {
    const auto hash = sha256Hex(token);
    const std::lock_guard lock(mutex_);
    Statement find(database_, "SELECT a.id, a.public_id, a.email, a.name, a.genres, a.regions, a.credits "
                              "FROM token t JOIN account a ON a.id = t.account WHERE t.hash = ?");
    std::optional<Account> account;
    find.bind(hash);
    while (find.step())
        account = Account{find.integer(0),    find.text(1),       find.text(2),   find.optionalText(3),
                          list(find.text(4)), list(find.text(5)), find.integer(6)};
    return account;
}

void State::setPreferences(std::int64_t account, const std::vector<std::string>& genres,
                           const std::vector<std::string>& regions) {
    const std::lock_guard lock(mutex_);
    Statement update(database_, "UPDATE account SET genres = ?, regions = ? WHERE id = ?");
    update.bind(nlohmann::json(genres).dump(), nlohmann::json(regions).dump(), account).run();
}

void State::addCredits(std::int64_t account, std::int64_t credits) {
    const std::lock_guard lock(mutex_);
    Statement update(database_, "UPDATE account SET credits = credits + ? WHERE id = ?");
    update.bind(credits, account).run();
}

Charge State::charge(std::int64_t account, std::int64_t tracks) {
    const std::lock_guard lock(mutex_);
    Transaction transaction(database_);
    Charge charge;
    Statement balance(database_, "SELECT credits FROM account WHERE id = ?");
    balance.bind(account);
    while (balance.step())
        charge.available = balance.integer(0);
    charge.done = charge.available >= tracks;
    if (!charge.done || tracks == 0) return charge;
    Statement(database_, "UPDATE account SET credits = credits - ? WHERE id = ?").bind(tracks, account).run();
    Statement log(database_, "INSERT INTO charge (account, credits, at) VALUES (?, ?, ?)");
    log.bind(account, tracks, nowText()).run();
    transaction.commit();
    return charge;
}

std::optional<std::int64_t> State::libraryId(std::int64_t account, const std::string& name) {
    std::optional<std::int64_t> id;
    Statement find(database_, "SELECT id FROM library WHERE account = ? AND name = ?");
    find.bind(account, name);
    while (find.step())
        id = find.integer(0);
    return id;
}

LibraryRecord State::syncLibrary(std::int64_t account, const std::string& name) {
    const std::lock_guard lock(mutex_);
    Transaction transaction(database_);
    const auto time = nowText();
    Statement upsert(database_,
                     "INSERT INTO library (public_id, account, name, last_synced_at) VALUES (?, ?, ?, ?) "
                     "ON CONFLICT (account, name) DO UPDATE SET last_synced_at = excluded.last_synced_at");
    upsert.bind("lib_" + randomToken(9), account, name, time).run();
    LibraryRecord record{"", name, time};
    Statement find(database_, "SELECT public_id FROM library WHERE account = ? AND name = ?");
    find.bind(account, name);
    while (find.step())
        record.id = find.text(0);
    transaction.commit();
    return record;
}

std::optional<std::int64_t> State::syncTracks(std::int64_t account, const std::string& library,
                                              const std::vector<TrackRecord>& tracks) {
    const std::lock_guard lock(mutex_);
    Transaction transaction(database_);
    const auto id = libraryId(account, library);
    if (!id) return std::nullopt;
    Statement upsert(database_,
                     "INSERT OR REPLACE INTO track (library, canonical_sig, artist, album, title, duration, "
                     "genre_tags, region_tags, era_tag, filename, ctime, last_tagged) "
                     "VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?)");
    for (const auto& track : tracks)
        upsert
            .bind(*id, track.canonicalSig, track.artist, track.album, track.title, track.duration,
                  track.genreTags, track.regionTags, track.eraTag, track.filename, track.ctime,
                  track.lastTagged)
            .run();
    Statement(database_, "UPDATE library SET last_synced_at = ? WHERE id = ?").bind(nowText(), *id).run();
    transaction.commit();
    return static_cast<std::int64_t>(tracks.size());
}

std::optional<std::int64_t> State::removeTracks(std::int64_t account, const std::string& library,
                                                const std::vector<std::string>& signatures) {
    const std::lock_guard lock(mutex_);
    Transaction transaction(database_);
    const auto id = libraryId(account, library);
    if (!id) return std::nullopt;
    std::int64_t removed = 0;
    Statement remove(database_, "DELETE FROM track WHERE library = ? AND canonical_sig = ?");
    for (const auto& signature : signatures) {
        remove.bind(*id, signature).run();
        removed += database_.changes();
    }
    transaction.commit();
    return removed;
}

std::optional<std::int64_t> State::deleteLibrary(std::int64_t account, const std::string& library) {
    const std::lock_guard lock(mutex_);
    Transaction transaction(database_);
    const auto id = libraryId(account, library);
    if (!id) return std::nullopt;
    Statement tracks(database_, "DELETE FROM track WHERE library = ?");
    tracks.bind(*id).run();
    const auto deleted = database_.changes();
    Statement(database_, "DELETE FROM library WHERE id = ?").bind(*id).run();
    transaction.commit();
    return deleted;
}

std::optional<InviteRecord> State::invite(std::int64_t account, const std::string& email) {
    const std::lock_guard lock(mutex_);
    Transaction transaction(database_);
    Statement known(database_, "SELECT 1 FROM account WHERE email = ?");
    known.bind(email);
    if (known.step()) return std::nullopt;

    const auto created = now();
    Statement upsert(database_,
                     "INSERT INTO invite (id, code, inviter, email, credits, status, created_at, expires_at) "
                     "VALUES (?, ?, ?, ?, ?, 'pending', ?, ?) "
                     "ON CONFLICT (inviter, email) DO UPDATE SET expires_at = excluded.expires_at");
    upsert
        .bind("invite_" + randomToken(9), randomToken(6), account, email, inviteCredits, iso8601(created),
              iso8601(created + inviteLifetime))
        .run();
    InviteRecord record;
    Statement find(database_, "SELECT id, code, email, credits, status, created_at, expires_at FROM invite "
                              "WHERE inviter = ? AND email = ?");
    find.bind(account, email);
    while (find.step())
        record = {find.text(0), find.text(1), find.text(2), find.integer(3),
                  find.text(4), find.text(5), find.text(6)};
    transaction.commit();
    return record;
}

} // namespace velto::local
