#include "ModelLibrary.hpp"

#include <csignal>
#include <fstream>

namespace velto::model::test {
namespace {

class ModelStoreFile : public ModelTest {
  protected:
    void SetUp() override {}

    /// A store with a shelf, two books and a loan, closed again.
    void makeStore() {
        open();
        const auto shelf = addShelf("shelf");
        make<Book>(shelf)->edit().title = "one";
        const auto second = make<Book>(shelf);
        second->edit().title = "two";
        second->edit().tags = std::vector<std::string>{"tag"};
        make<Loan>("ann", second);
        context().save();
        container.reset();
    }

    void overwrite(std::streamoff offset, const std::string& bytes) const {
        std::fstream file(storePath(), std::ios::in | std::ios::out | std::ios::binary);
        file.seekp(offset);
        file.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    }

    /// SQL on tables that take any value, as a damaged file would hold it.
    void corrupt(const std::string& statement) const {
        sql("PRAGMA writable_schema = ON; PRAGMA foreign_keys = OFF; "
            "UPDATE sqlite_schema SET sql = replace(replace(sql, ' STRICT', ''), ' NOT NULL', '') "
            "WHERE type = 'table'");
        sql("PRAGMA foreign_keys = OFF; " + statement);
    }
};

TEST_F(ModelStoreFile, WhatIsNotAUsableStoreIsRefusedAndLeftAsItWas) {
    struct Refusal {
        const char* name;
        StoreError::Case expected;
        std::function<void()> prepare;
    };

    const std::vector<Refusal> refusals{
        {"garbage", StoreError::Case::notAStore,
         [&] { folder.write("library.store", std::string(5000, 'g')); }},
        {"short garbage", StoreError::Case::notAStore, [&] { folder.write("library.store", "x"); }},
        {"another program's database", StoreError::Case::notAStore,
         [&] { sql("CREATE TABLE theirs (a); INSERT INTO theirs VALUES (1)"); }},
        {"a newer version", StoreError::Case::newerVersion,
         [&] {
             makeStore();
             sql("PRAGMA user_version = 1000001");
         }},
        {"a store without one of its tables", StoreError::Case::damaged,
         [&] {
             makeStore();
             sql("DROP TABLE Loan");
         }},
        {"a store without one of its columns", StoreError::Case::damaged,
         [&] {
             makeStore();
             sql("ALTER TABLE Book RENAME COLUMN title TO name");
         }},
        {"a store of a version that nothing leads from", StoreError::Case::olderVersion,
         [&] {
             makeStore();
             sql("PRAGMA user_version = 999999");
         }},
        {"a database with another program's mark", StoreError::Case::notAStore,
         [&] {
             makeStore();
             sql("PRAGMA application_id = 1");
         }},
        {"a header with nothing after it", StoreError::Case::damaged,
         [&] {
             makeStore();
             std::filesystem::resize_file(storePath(), 4096);
             overwrite(100, std::string(3996, '\x5A'));
         }},
    };
    for (const auto& refusal : refusals) {
        SCOPED_TRACE(refusal.name);
        refusal.prepare();
        const std::string before = velto::test::readFile(storePath());
        EXPECT_EQ(failureOf([&] { open(); }), refusal.expected);
        EXPECT_EQ(velto::test::readFile(storePath()), before);
        for (const char* rest : {"", "-wal", "-shm"})
            std::filesystem::remove(storePath().string() + rest);
    }
}

TEST_F(ModelStoreFile, PlacesThatCannotHoldAStoreAreNamed) {
    std::filesystem::create_directory(storePath());
    EXPECT_EQ(failureOf([&] { open(); }), StoreError::Case::cannotOpen);
    EXPECT_EQ(failureOf([&] {
                  folder.write("file", "");
                  ModelContainer::create(librarySchema(), {folder / "file" / "library.store"});
              }),
              StoreError::Case::cannotOpen);
    std::filesystem::remove(storePath());
    std::filesystem::create_symlink("/nowhere/library.store", storePath());
    EXPECT_EQ(failureOf([&] { open(); }), StoreError::Case::cannotOpen);
    EXPECT_TRUE(std::filesystem::is_symlink(storePath()));
}

TEST_F(ModelStoreFile, TheLogOfAStoreThatWasMovedAwayIsLeftForIt) {
    open();
    addShelf("shelf");
    context().save();
    const auto log = storePath().string() + "-wal";
    const auto rows = velto::test::readFile(log); // as a killed process leaves it
    container.reset();
    std::filesystem::rename(storePath(), folder / "away.store");
    folder.write("library.store-wal", rows);
    EXPECT_EQ(failureOf([&] { open(); }), StoreError::Case::cannotOpen);
    EXPECT_EQ(velto::test::readFile(log), rows);
    std::filesystem::rename(log, (folder / "away.store").string() + "-wal");
    EXPECT_NO_THROW(open());
}

TEST_F(ModelStoreFile, RowsThatBreakTheRulesAreAnError) {
    const std::vector<std::pair<const char*, const char*>> damages{
        {"NULL where a value must be", "UPDATE Book SET cover = NULL WHERE _id = 1"},
        {"an unknown case", "UPDATE Book SET cover = 'paper' WHERE _id = 1"},
        {"text for a number", "UPDATE Book SET pages = 'many' WHERE _id = 1"},
        {"a number for a date", "UPDATE Book SET bought = 1.5 WHERE _id = 1"},
        {"a blob for text", "UPDATE Book SET title = x'00FF' WHERE _id = 1"},
        {"a list that is none", "UPDATE Book SET tags = '{\"a\": [' WHERE _id = 1"},
        {"a list of other things", "UPDATE Book SET tags = '[1, null]' WHERE _id = 1"},
        {"no UUID", "UPDATE Book SET id = 'E621E1F8-C36C-495A-93FC' WHERE _id = 1"},
        {"a row id below 1", "UPDATE Loan SET _id = -5"},
        {"a count beyond all row ids", "UPDATE sqlite_sequence SET seq = 9223372036854775807"},
        {"the last of all row ids", "UPDATE Loan SET _id = 9223372036854775807"},
    };
    for (const auto& [name, statement] : damages) {
        SCOPED_TRACE(name);
        makeStore();
        corrupt(statement);
        open();
        EXPECT_EQ(failureOf([&] { context().load(); }), StoreError::Case::damaged);
        container.reset();
        std::filesystem::remove(storePath());
    }
}

TEST_F(ModelStoreFile, ARelationshipToNothingReadsAsNoneAndIsRepairedByItsNextSave) {
    makeStore();
    sql("PRAGMA foreign_keys = OFF; UPDATE Book SET shelf = 77 WHERE _id = 1");
    open();
    const auto book = context().fetch<Book>().front();
    EXPECT_EQ(book->shelf, nullptr);
    EXPECT_EQ(context().fetch<Shelf>().front()->books.size(), 1U);
    book->edit().shelf = context().fetch<Shelf>().front();
    context().save();
    EXPECT_EQ(sql("PRAGMA foreign_key_check"), "");
}

TEST_F(ModelStoreFile, AnOlderStoreIsBroughtUpAfterACopyIsMadeOrLeftAsItIs) {
    const auto older = [&] {
        makeStore();
        // What the two versions before had: no pages, and a title under another name.
        sql("ALTER TABLE Book DROP COLUMN pages; ALTER TABLE Book RENAME COLUMN title TO name; "
            "PRAGMA user_version = 8000");
    };
    Schema schema = librarySchema();
    schema.migrations = {
        {{0, 9, 0}, {1, 0, 0}, {"ALTER TABLE Book RENAME COLUMN name TO title"}},
        {{0, 8, 0}, {0, 9, 0}, {"ALTER TABLE Book ADD COLUMN pages INTEGER", "UPDATE Book SET pages = 12"}},
    };
    const auto openWith = [&](const Schema& used) {
        container = ModelContainer::create(used, {storePath()});
    };
    const auto copy = std::filesystem::path(storePath().string() + ".before-1.0.0");

    older();
    EXPECT_EQ(failureOf([&] { openWith(librarySchema()); }), StoreError::Case::olderVersion);
    Schema broken = schema;
    broken.migrations[0].statements = {"ALTER TABLE Book RENAME COLUMN nobody TO title"};
    EXPECT_EQ(failureOf([&] { openWith(broken); }), StoreError::Case::failed);
    Schema incomplete = schema;
    incomplete.migrations[0].statements.clear();
    EXPECT_EQ(failureOf([&] { openWith(incomplete); }), StoreError::Case::damaged);
    EXPECT_EQ(sql("PRAGMA user_version"), "8000");
    EXPECT_EQ(sql("SELECT count(name) FROM Book"), "2") << "nothing of a step that failed stays";

    folder.write("library.store.before-1.0.0.new", "of a process that was killed");
    openWith(schema);
    const auto books = context().fetch<Book>();
    ASSERT_EQ(books.size(), 2U);
    EXPECT_EQ(books[0]->title, "one");
    EXPECT_EQ(books[1]->pages, 12);
    EXPECT_EQ(books[1]->tags, std::vector<std::string>{"tag"});
    container.reset();
    EXPECT_EQ(sql("PRAGMA user_version"), "1000000");
    std::filesystem::copy_file(copy, storePath(), std::filesystem::copy_options::overwrite_existing);
    EXPECT_EQ(sql("PRAGMA user_version"), "8000");
    EXPECT_EQ(sql("SELECT group_concat(name) FROM Book"), "one,two") << "the copy is the store as it was";
    openWith(schema);
}

TEST_F(ModelStoreFile, AnOpenStoreHasItsSettingsAndIsItsOwnersAlone) {
    folder.write("library.store", "");                 // as good as nothing
    folder.write("library.store.new", "half a store"); // of a process that was killed
    makeStore();
    EXPECT_FALSE(std::filesystem::exists(folder / "library.store.new"));
    sql("PRAGMA journal_mode = DELETE");
    open();
    EXPECT_EQ(sql("PRAGMA journal_mode"), "wal");
    EXPECT_EQ(failureOf([&] { ModelContainer::create(librarySchema(), {storePath()}); }),
              StoreError::Case::inUse);
    addShelf("another");
    context().save();
    EXPECT_TRUE(std::filesystem::exists(storePath().string() + "-wal"));
    for (const auto& entry : std::filesystem::directory_iterator(folder.path()))
        EXPECT_EQ(entry.status().permissions(), std::filesystem::perms(0600)) << entry.path();
}

} // namespace
} // namespace velto::model::test
